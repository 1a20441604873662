#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// Finds the tags and attributes that the inspection looks at, in one forward pass over UTF-8 HTML,
/// with exactly the matches that the patterns of `HTMLPatterns` would give (the same leftmost,
/// non-overlapping matches, the same word boundary and white space). Hand-written because
/// these run over every message body at index time: a byte search for "<" is many times
/// faster than a general regex engine over UTF-16, and the anchor search stays linear even for
/// links that are never closed. All results are views into the input.
namespace qs::HTMLScanner {

/// Every match of `<img\b[^>]*>` (ignoring case), in order.
std::vector<std::string_view> imgTags(std::string_view html);

/// One match of `<a\b([^>]*)>([\s\S]*?)</a\s*>` (ignoring case).
struct Anchor {
    std::string_view whole;
    /// Group 1: the text between "<a" and the tag's ">".
    std::string_view attributes;
    /// Group 2: the link's content up to the first closing tag.
    std::string_view content;
};

/// Every anchor match, in order.
std::vector<Anchor> anchors(std::string_view html);

/// The images and the anchors together, found in one walk over the text: exactly what
/// `imgTags` and `anchors` give.
struct Tags {
    std::vector<std::string_view> images;
    std::vector<Anchor> anchors;
};
Tags tags(std::string_view html);

/// One match of `([a-zA-Z-]+)\s*=\s*("[^"]*"|'[^']*'|[^\s>]+)`: an attribute with its value.
struct Attribute {
    std::string_view whole;
    /// Group 1, as written.
    std::string_view name;
    /// Group 2, quotes included.
    std::string_view value;
};

/// Every attribute match in the text of one tag, in order.
std::vector<Attribute> attributes(std::string_view tag);

/// The same, written into `out` (emptied first), for callers that read many tags and keep
/// the vector's room.
void attributes(std::string_view tag, std::vector<Attribute>& out);

/// Group 1 of the first match of
/// `(?:https?://)?((?:[a-z0-9-]+\.)+[a-z]{2,24})(?:[/:?#]\S*)?` (ignoring case) in ASCII text:
/// the first domain named in it, as written. Nothing without a match. For ASCII text only:
/// ignoring case, the pattern's letters also take a few other characters (the Kelvin sign, the
/// long s), so other text is for the pattern itself.
std::optional<std::string_view> domainInASCIIText(std::string_view text);

/// The offset just after the first match of `<head[^>]*>` (ignoring case), or nothing.
std::optional<size_t> endOfHeadTag(std::string_view html);

} // namespace qs::HTMLScanner
