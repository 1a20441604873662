import QtQuick
import QtQuick.Layouts
import Quernstead

// A label, a dotted line and a value.
RowLayout {
    property string label
    property string value
    spacing: 6

    Text { text: label; color: Theme.ink2; font: Theme.callout }
    Canvas {
        Layout.fillWidth: true
        Layout.preferredHeight: 2
        Layout.alignment: Qt.AlignBaseline
        onPaint: {
            const ctx = getContext("2d")
            ctx.clearRect(0, 0, width, height)
            ctx.fillStyle = Theme.ink3
            for (let x = 0; x < width; x += 4)
                ctx.fillRect(x, 0, 1.5, 1.5)
        }
    }
    Text { text: value; color: Theme.ink; font: Theme.callout }
}
