#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace qs {

/// One header field as it stood in the message: the name as written (case kept) and the value
/// with folding undone and surrounding whitespace trimmed. Both are UTF-8 text; encoded words
/// (RFC 2047) are still encoded.
struct MIMEHeaderField {
    std::string name;
    std::string value;

    bool operator==(const MIMEHeaderField&) const = default;
};

/// The header block of a message or part: every field in file order, repeats kept. Lookups by
/// name ignore ASCII case and give the first match. A plain value type, safe to copy and share.
class MIMEHeaders {
public:
    std::vector<MIMEHeaderField> fields;

    MIMEHeaders() = default;
    explicit MIMEHeaders(std::vector<MIMEHeaderField> fields) : fields(std::move(fields)) {}

    /// Reads a header block leniently; never fails. The bytes are taken as UTF-8, or, when they
    /// aren't valid UTF-8, as Windows-1252, or failing that as UTF-8 with ill-formed sequences
    /// replaced. Lines end at LF or CR LF; a line starting with a space or tab continues the
    /// field before it (joined with one space), and is dropped when there is none. A line
    /// without a colon, or whose name is empty or holds a space, is dropped.
    static MIMEHeaders parse(std::string_view bytes);

    /// The first field's value whose name matches `name` ignoring case, or nothing.
    std::optional<std::string> operator[](std::string_view name) const;

    /// As the subscript, without copying: a pointer into `fields`, or null. Valid while this
    /// object is alive and unchanged.
    const std::string* first(std::string_view name) const;

    /// Every value whose name matches `name` ignoring case, in file order.
    std::vector<std::string> all(std::string_view name) const;

    /// True when a field of that name (ignoring case) exists.
    bool contains(std::string_view name) const { return first(name) != nullptr; }

    bool empty() const { return fields.empty(); }
    size_t size() const { return fields.size(); }

    bool operator==(const MIMEHeaders&) const = default;
};

std::ostream& operator<<(std::ostream& out, const MIMEHeaderField& field);
std::ostream& operator<<(std::ostream& out, const MIMEHeaders& headers);

} // namespace qs
