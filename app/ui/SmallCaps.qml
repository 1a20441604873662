import QtQuick
import Quernstead

// A section label: upper-cased and spaced, in the label size.
Text {
    font.family: Theme.label.family
    font.pixelSize: Theme.label.pixelSize
    font.weight: Theme.label.weight
    font.capitalization: Font.AllUppercase
    font.letterSpacing: 0.8
    color: Theme.ink3
}
