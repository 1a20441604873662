#include "imap/IMAPParseError.h"

namespace qs {

namespace {

std::string describe(IMAPParseError::Kind kind, const std::string& detail) {
    using Kind = IMAPParseError::Kind;
    switch (kind) {
    case Kind::emptyResponse:
        return "empty response";
    case Kind::badTaggedResponse:
        return "bad tagged response: " + detail;
    case Kind::unexpectedEnd:
        return "unexpected end";
    case Kind::unexpectedCharacter:
        return "unexpected character " + detail;
    case Kind::unterminatedString:
        return "unterminated string";
    case Kind::unterminatedList:
        return "unterminated list";
    case Kind::badLiteral:
        return "bad literal";
    case Kind::badLiteralClose:
        return "bad literal close";
    case Kind::shortLiteral:
        return "short literal";
    }
    return "parse error";
}

} // namespace

IMAPParseError::IMAPParseError(Kind kind, std::string detail)
    : kind_(kind), description_(describe(kind, detail)) {}

std::ostream& operator<<(std::ostream& out, const IMAPParseError& error) {
    return out << error.description();
}

} // namespace qs
