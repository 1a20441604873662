#pragma once

#include <exception>
#include <ostream>
#include <string>

namespace qs {

/// A malformed server response. The only error the reader and the parser ever throw; it travels
/// unchanged through `IMAPClient` to whoever words it for the user.
class IMAPParseError : public std::exception {
public:
    /// The closed set of failures; their fixed texts live in one place (the .cpp).
    enum class Kind {
        emptyResponse,       ///< "empty response"
        badTaggedResponse,   ///< "bad tagged response: {first 80 bytes at most}"
        unexpectedEnd,       ///< "unexpected end"
        unexpectedCharacter, ///< "unexpected character {byte}"
        unterminatedString,  ///< "unterminated string"
        unterminatedList,    ///< "unterminated list"
        badLiteral,          ///< "bad literal"
        badLiteralClose,     ///< "bad literal close"
        shortLiteral,        ///< "short literal"
    };

    /// `detail` is appended to the fixed text of the kinds that carry one (the quoted start of a
    /// bad tagged line, the offending character) and ignored by the others.
    explicit IMAPParseError(Kind kind, std::string detail = {});

    Kind kind() const { return kind_; }
    /// The full printable text, e.g. "unexpected character )".
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

    bool operator==(const IMAPParseError& other) const {
        return kind_ == other.kind_ && description_ == other.description_;
    }

private:
    Kind kind_;
    std::string description_;
};

/// The description itself, which is the error's printable form.
std::ostream& operator<<(std::ostream& out, const IMAPParseError& error);

} // namespace qs
