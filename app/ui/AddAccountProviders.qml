import QtQuick
import QtQuick.Layouts
import Quernstead

// The add-account sheet's first step: a card per provider.
Item {
    property AddAccountFlow flow

    GridLayout {
        anchors.left: parent.left
        anchors.right: parent.right
        columns: 3
        columnSpacing: 12
        rowSpacing: 12
        Repeater {
            model: flow ? flow.presets : []
            ProviderCard {
                required property var modelData
                objectName: "provider-" + modelData.id
                Layout.fillWidth: true
                Layout.preferredWidth: 1
                text: modelData.name
                symbol: modelData.symbol
                needs: modelData.needs
                onClicked: flow.choose(modelData.id)
            }
        }
    }
}
