#pragma once

#include "imap/IMAPStatus.h"
#include "imap/IMAPValue.h"

#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

namespace qs {

/// One complete server response, of one of four cases.
class IMAPResponse {
public:
    /// The end of a command: `tag status [code] text`. The tag is kept as sent.
    struct Tagged {
        std::string tag;
        IMAPStatus status;
        std::optional<std::string> code; ///< between the brackets, nested brackets kept
        std::string text;                ///< may be empty
        bool operator==(const Tagged&) const = default;
    };

    /// `* status [code] text`.
    struct UntaggedStatus {
        IMAPStatus status;
        std::optional<std::string> code;
        std::string text;
        bool operator==(const UntaggedStatus&) const = default;
    };

    /// `*` and anything else; `values` exclude the `*` and may be empty.
    struct Untagged {
        std::vector<IMAPValue> values;
        bool operator==(const Untagged&) const = default;
    };

    /// A line starting with `+`; `text` is what follows the `+` and its spaces.
    struct Continuation {
        std::string text;
        bool operator==(const Continuation&) const = default;
    };

    using Case = std::variant<Tagged, UntaggedStatus, Untagged, Continuation>;

    IMAPResponse(Tagged value) : value_(std::move(value)) {}
    IMAPResponse(UntaggedStatus value) : value_(std::move(value)) {}
    IMAPResponse(Untagged value) : value_(std::move(value)) {}
    IMAPResponse(Continuation value) : value_(std::move(value)) {}

    const Case& value() const { return value_; }
    Case& value() { return value_; }

    /// The case asked for, or null when the response is another case.
    const Tagged* tagged() const { return std::get_if<Tagged>(&value_); }
    Tagged* tagged() { return std::get_if<Tagged>(&value_); }
    const UntaggedStatus* untaggedStatus() const { return std::get_if<UntaggedStatus>(&value_); }
    UntaggedStatus* untaggedStatus() { return std::get_if<UntaggedStatus>(&value_); }
    const Untagged* untagged() const { return std::get_if<Untagged>(&value_); }
    Untagged* untagged() { return std::get_if<Untagged>(&value_); }
    const Continuation* continuation() const { return std::get_if<Continuation>(&value_); }
    Continuation* continuation() { return std::get_if<Continuation>(&value_); }

    bool operator==(const IMAPResponse&) const = default;

private:
    Case value_;
};

std::ostream& operator<<(std::ostream& out, const IMAPResponse::Tagged& response);
std::ostream& operator<<(std::ostream& out, const IMAPResponse::UntaggedStatus& response);
std::ostream& operator<<(std::ostream& out, const IMAPResponse::Untagged& response);
std::ostream& operator<<(std::ostream& out, const IMAPResponse::Continuation& response);
std::ostream& operator<<(std::ostream& out, const IMAPResponse& response);

} // namespace qs
