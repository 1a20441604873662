#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace qs {

/// Appends JSON text to a string as it goes, so a large document is written without building
/// a tree of it first. The caller places the structure characters ({ } [ ] : ,) itself.
class JSONWriter {
public:
    explicit JSONWriter(std::string& out) : out_(out) {}

    void raw(std::string_view text) { out_.append(text); }
    void raw(char c) { out_.push_back(c); }

    /// A JSON string. Ill-formed UTF-8 is replaced by U+FFFD, so the output is always valid
    /// JSON (the reader rejects a file with invalid UTF-8 as a whole).
    void string(std::string_view text);

    void integer(int64_t value);
    void unsignedInteger(uint64_t value);

    /// The shortest form that reads back as the same double; 0 for NaN and infinities, which
    /// JSON can't hold.
    void number(double value);

    void boolean(bool value) { out_.append(value ? "true" : "false"); }

private:
    void escaped(std::string_view text);

    std::string& out_;
};

} // namespace qs
