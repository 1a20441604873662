#pragma once

#include "support/Regex.h"

/// The fixed regular expressions of the HTML inspection, each compiled once on first use and
/// shared read-only. `imgRegex`, `anchorRegex` and `attrRegex` define what a tag and an
/// attribute are; the hot paths find their matches with `HTMLScanner`, which gives the same
/// matches in one linear pass, and tests hold the two to each other.
namespace qs::HTMLPatterns {

/// `<img\b[^>]*>`, ignoring case.
const Regex& imgRegex();

/// `([a-zA-Z-]+)\s*=\s*("[^"]*"|'[^']*'|[^\s>]+)`: one attribute with its value.
const Regex& attrRegex();

/// `<a\b([^>]*)>([\s\S]*?)</a\s*>`, ignoring case: a link's attributes and its content.
const Regex& anchorRegex();

/// `(?:https?://)?((?:[a-z0-9-]+\.)+[a-z]{2,24})(?:[/:?#]\S*)?`, ignoring case: a domain named
/// in a link's visible text.
const Regex& domainInText();

} // namespace qs::HTMLPatterns
