#pragma once

#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// One token of a server response: an atom, a string, a parenthesised list or NIL.
///
/// - `atom`: a bare word as valid UTF-8 text (numbers, flags such as `\Seen`, section names
///   such as `BODY[]` or `BODY[HEADER.FIELDS (SUBJECT)]`).
/// - `string`: the raw bytes of a quoted string or a literal, never decoded.
/// - `list`: the values of a parenthesised list, possibly empty, nested to any depth.
/// - `nil_`: the atom NIL in any letter case.
///
/// Values are moved rather than copied on the way from the reader to the commands: a message
/// body is one `string` value whose bytes can be taken out with `takeData()`. Destroying a
/// value is iterative, so a hostile nesting depth can't exhaust the stack; copying, comparing
/// and printing recurse, and are meant for tests and small values.
class IMAPValue {
public:
    enum class Kind { atom, string, list, nil_ };

    /// NIL.
    IMAPValue() = default;

    static IMAPValue atom(std::string text);
    static IMAPValue string(std::string bytes);
    static IMAPValue list(std::vector<IMAPValue> items);
    static IMAPValue nil();

    IMAPValue(const IMAPValue&) = default;
    IMAPValue(IMAPValue&&) noexcept = default;
    IMAPValue& operator=(const IMAPValue&) = default;
    IMAPValue& operator=(IMAPValue&&) noexcept = default;
    ~IMAPValue();

    Kind kind() const { return kind_; }
    bool isAtom() const { return kind_ == Kind::atom; }
    bool isString() const { return kind_ == Kind::string; }
    bool isList() const { return kind_ == Kind::list; }
    bool isNil() const { return kind_ == Kind::nil_; }

    /// An atom's text; a string's bytes as UTF-8, or as ISO Latin-1 when they aren't valid
    /// UTF-8; nothing for a list or NIL.
    std::optional<std::string> text() const;

    /// An atom's UTF-8 bytes or a string's bytes, borrowed from this value; nothing for a list
    /// or NIL.
    std::optional<std::string_view> data() const;

    /// What `data()` gives, moved out without a copy: afterwards an atom or string holds no
    /// bytes. Nothing for a list or NIL, which are left as they are.
    std::optional<std::string> takeData();

    /// A list's elements; empty for every other kind.
    std::span<const IMAPValue> items() const { return items_; }
    /// The same, writable in place (to take a body out of a FETCH list without copying).
    std::span<IMAPValue> items() { return items_; }

    bool operator==(const IMAPValue& other) const = default;

private:
    Kind kind_ = Kind::nil_;
    std::string bytes_;            // atom text or string bytes
    std::vector<IMAPValue> items_; // list elements
};

/// IMAP-like form for test failures: atoms bare, strings quoted with escapes (long ones
/// shortened), lists in parentheses, NIL.
std::ostream& operator<<(std::ostream& out, const IMAPValue& value);

} // namespace qs
