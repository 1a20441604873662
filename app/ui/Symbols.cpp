#include "Symbols.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qs::Symbols {

namespace {

// Sorted by name, for the binary search below.
constexpr std::array table{
    std::pair<std::string_view, std::string_view>{"archivebox", "archive"},
    std::pair<std::string_view, std::string_view>{"arrow.down.circle.fill", "circle-arrow-down"},
    std::pair<std::string_view, std::string_view>{"arrow.down.to.line", "arrow-down-to-line"},
    std::pair<std::string_view, std::string_view>{"arrow.right", "arrow-right"},
    std::pair<std::string_view, std::string_view>{"arrow.triangle.2.circlepath", "refresh-cw"},
    std::pair<std::string_view, std::string_view>{"arrow.up.bin", "archive-restore"},
    std::pair<std::string_view, std::string_view>{"arrow.up.right.square",
                                                  "square-arrow-out-up-right"},
    std::pair<std::string_view, std::string_view>{"arrow.uturn.backward", "undo-2"},
    std::pair<std::string_view, std::string_view>{"arrow.uturn.backward.circle.fill", "undo-2"},
    std::pair<std::string_view, std::string_view>{"bolt.fill", "zap"},
    std::pair<std::string_view, std::string_view>{"checkmark", "check"},
    std::pair<std::string_view, std::string_view>{"checkmark.seal", "badge-check"},
    std::pair<std::string_view, std::string_view>{"checkmark.shield", "shield-check"},
    std::pair<std::string_view, std::string_view>{"checkmark.shield.fill", "shield-check"},
    std::pair<std::string_view, std::string_view>{"chevron.down", "chevron-down"},
    std::pair<std::string_view, std::string_view>{"chevron.right", "chevron-right"},
    std::pair<std::string_view, std::string_view>{"clock", "clock"},
    std::pair<std::string_view, std::string_view>{"doc", "file-text"},
    std::pair<std::string_view, std::string_view>{"doc.on.doc", "copy"},
    std::pair<std::string_view, std::string_view>{"ellipsis.circle", "circle-ellipsis"},
    std::pair<std::string_view, std::string_view>{"envelope.badge.fill", "mail-plus"},
    std::pair<std::string_view, std::string_view>{"envelope.fill", "mail"},
    std::pair<std::string_view, std::string_view>{"envelope.open", "mail-open"},
    std::pair<std::string_view, std::string_view>{"exclamationmark.circle", "circle-alert"},
    std::pair<std::string_view, std::string_view>{"exclamationmark.shield", "shield-alert"},
    std::pair<std::string_view, std::string_view>{"exclamationmark.shield.fill", "shield-alert"},
    std::pair<std::string_view, std::string_view>{"exclamationmark.triangle", "triangle-alert"},
    std::pair<std::string_view, std::string_view>{"exclamationmark.triangle.fill",
                                                  "triangle-alert"},
    std::pair<std::string_view, std::string_view>{"eye.slash", "eye-off"},
    std::pair<std::string_view, std::string_view>{"folder", "folder"},
    std::pair<std::string_view, std::string_view>{"gearshape", "settings"},
    std::pair<std::string_view, std::string_view>{"icloud.fill", "cloud"},
    std::pair<std::string_view, std::string_view>{"info.circle", "info"},
    std::pair<std::string_view, std::string_view>{"keyboard", "keyboard"},
    std::pair<std::string_view, std::string_view>{"link", "link"},
    std::pair<std::string_view, std::string_view>{"lock", "lock"},
    std::pair<std::string_view, std::string_view>{"magnifyingglass", "search"},
    std::pair<std::string_view, std::string_view>{"magnifyingglass.circle.fill", "search"},
    std::pair<std::string_view, std::string_view>{"paperclip", "paperclip"},
    std::pair<std::string_view, std::string_view>{"paperplane", "send"},
    std::pair<std::string_view, std::string_view>{"person.2", "users"},
    std::pair<std::string_view, std::string_view>{"person.crop.circle.badge.minus", "user-minus"},
    std::pair<std::string_view, std::string_view>{"person.crop.circle.badge.plus", "user-plus"},
    std::pair<std::string_view, std::string_view>{"photo", "image"},
    std::pair<std::string_view, std::string_view>{"plus", "plus"},
    std::pair<std::string_view, std::string_view>{"scalemass", "weight"},
    std::pair<std::string_view, std::string_view>{"server.rack", "server"},
    std::pair<std::string_view, std::string_view>{"square.and.arrow.down", "import"},
    std::pair<std::string_view, std::string_view>{"stop.circle.fill", "circle-stop"},
    std::pair<std::string_view, std::string_view>{"stop.fill", "square"},
    std::pair<std::string_view, std::string_view>{"text.magnifyingglass", "file-search"},
    std::pair<std::string_view, std::string_view>{"trash", "trash-2"},
    std::pair<std::string_view, std::string_view>{"tray", "inbox"},
    std::pair<std::string_view, std::string_view>{"tray.and.arrow.down.fill", "inbox"},
    std::pair<std::string_view, std::string_view>{"xmark", "x"},
    std::pair<std::string_view, std::string_view>{"xmark.bin", "archive-x"},
    std::pair<std::string_view, std::string_view>{"y.circle.fill", "at-sign"},
};

constexpr bool sorted() {
    for (size_t i = 1; i < table.size(); ++i)
        if (!(table[i - 1].first < table[i].first))
            return false;
    return true;
}
static_assert(sorted());

} // namespace

std::string_view file(std::string_view name) {
    auto it =
        std::lower_bound(table.begin(), table.end(), name,
                         [](const auto& entry, std::string_view n) { return entry.first < n; });
    return it != table.end() && it->first == name ? it->second : std::string_view{};
}

} // namespace qs::Symbols
