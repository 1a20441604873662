#include "Brindle/UpdateLogic.h"

#include <openssl/evp.h>
#include <sys/utsname.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <vector>

namespace brindle::UpdateLogic {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Orders two runs of digits as the numbers they spell, of any length.
int compareNumbers(std::string_view a, std::string_view b) {
    const auto trim = [](std::string_view run) {
        const size_t first = run.find_first_not_of('0');
        return first == std::string_view::npos ? std::string_view{} : run.substr(first);
    };
    a = trim(a);
    b = trim(b);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    const int order = a.compare(b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

std::string_view digitRun(std::string_view text, size_t& at) {
    const size_t start = at;
    while (at < text.size() && isDigit(text[at]))
        ++at;
    return text.substr(start, at - start);
}

int compareNumeric(std::string_view a, std::string_view b) {
    size_t i = 0;
    size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            if (int order = compareNumbers(digitRun(a, i), digitRun(b, j)))
                return order;
            continue;
        }
        if (a[i] != b[j])
            return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]) ? -1 : 1;
        ++i;
        ++j;
    }
    if (i == a.size() && j == b.size())
        return 0;
    return i == a.size() ? -1 : 1;
}

std::vector<int> fields(std::string_view text) {
    std::vector<int> result;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find('.', start);
        if (end == std::string_view::npos)
            end = text.size();
        const std::string_view piece = text.substr(start, end - start);
        int value = 0;
        auto [rest, error] = std::from_chars(piece.data(), piece.data() + piece.size(), value);
        if (!piece.empty() && error == std::errc{} && rest == piece.data() + piece.size())
            result.push_back(value);
        start = end + 1;
    }
    return result;
}

} // namespace

bool isNewer(std::string_view candidate, std::string_view current) {
    return compareNumeric(candidate, current) > 0;
}

bool systemSupports(const std::optional<std::string>& minimum, SystemVersion system) {
    if (!minimum || minimum->empty())
        return true;
    const std::vector<int> wanted = fields(*minimum);
    const int running[] = {system.major, system.minor, system.patch};
    for (size_t field = 0; field < 3; ++field) {
        const int need = field < wanted.size() ? wanted[field] : 0;
        if (running[field] != need)
            return running[field] > need;
    }
    return true;
}

std::optional<std::string> decodeBase64(std::string_view text) {
    if (text.size() % 4 != 0)
        return std::nullopt;
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    const std::string_view body = text.substr(0, text.size() - padding);
    if (body.find_first_not_of(alphabet) != std::string_view::npos)
        return std::nullopt;
    std::string bytes(text.size() / 4 * 3, '\0');
    const int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                       reinterpret_cast<const unsigned char*>(text.data()),
                                       static_cast<int>(text.size()));
    if (length < 0)
        return std::nullopt;
    bytes.resize(size_t(length) - padding);
    return bytes;
}

bool verify(std::string_view data, std::string_view signature, std::string_view publicKey) {
    const auto signatureBytes = decodeBase64(signature);
    if (!signatureBytes)
        return false;
    const auto keyBytes = decodeBase64(publicKey);
    if (!keyBytes)
        return false;
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr,
                                    reinterpret_cast<const unsigned char*>(keyBytes->data()),
                                    keyBytes->size()),
        &EVP_PKEY_free);
    if (!key)
        return false;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    if (!context || EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1)
        return false;
    return EVP_DigestVerify(context.get(),
                            reinterpret_cast<const unsigned char*>(signatureBytes->data()),
                            signatureBytes->size(),
                            reinterpret_cast<const unsigned char*>(data.data()), data.size()) == 1;
}

SystemVersion parseSystemVersion(std::string_view release) {
    int parts[3] = {0, 0, 0};
    size_t at = 0;
    for (int field = 0; field < 3 && at < release.size() && isDigit(release[at]); ++field) {
        auto [rest, error] =
            std::from_chars(release.data() + at, release.data() + release.size(), parts[field]);
        if (error != std::errc{})
            break;
        at = size_t(rest - release.data());
        if (at >= release.size() || release[at] != '.')
            break;
        ++at;
    }
    return {parts[0], parts[1], parts[2]};
}

SystemVersion runningSystem() {
    utsname name{};
    if (::uname(&name) != 0)
        return {};
    return parseSystemVersion(name.release);
}

} // namespace brindle::UpdateLogic
