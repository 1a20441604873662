#pragma once

#include <string>
#include <string_view>

namespace qs::HTMLText {

/// Readable plain text of an HTML body: style, script, head and title elements and comments
/// removed, line breaks for `<br>` and the ends of paragraphs, divisions, rows, list items and
/// headings, every other tag a space, entities decoded, runs of blanks collapsed, at most one
/// empty line in a row, trimmed. Never fails.
std::string toPlain(std::string_view html);

/// Common named entities (any case) and numeric ones (`&#66;`, `&#x42;`) replaced by their
/// characters; a numeric reference to no valid Unicode scalar is deleted. Other text is kept.
std::string decodeEntities(std::string_view text);

/// `&`, `<`, `>` and `"` escaped for HTML.
std::string escape(std::string_view text);

} // namespace qs::HTMLText
