#pragma once

#include "mime/ByteSlice.h"
#include "mime/ContentType.h"
#include "mime/MIMEHeaders.h"
#include "mime/MIMEPart.h"
#include "mime/ParsedMessage.h"

#include <cstddef>
#include <string_view>
#include <vector>

/// Turns the raw bytes of one message into a tree of parts with its display fields, bodies and
/// attachments. Lenient and stateless: every function accepts any bytes, never throws on
/// account of the input, and can be called from any thread. Bad input yields less, never an
/// error.
namespace qs::MIMEParser {

/// `headers` and `looksValid` read no further than this. Real header blocks, long Received
/// chains and DKIM signatures included, stay well below it, and screening a large file for
/// being mail stays cheap.
inline constexpr size_t kHeaderScanLimit = 262'144;

/// A multipart at this depth or deeper (the root is depth 0) stays an unsplit leaf. This is the
/// only guard against hostile nesting: it bounds recursion and the tree's size per byte, and sits
/// far beyond anything real mail does (the deepest seen in practice is about 7 levels).
inline constexpr int kMaxDepth = 40;

/// The whole message parsed. Copies `data` once into a shared buffer that the parts slice.
ParsedMessage parse(std::string_view data);

/// As above without the copy: the parts slice `data`'s own buffer (e.g.
/// `parse(ByteSlice(std::move(fileBytes)))`).
ParsedMessage parse(const ByteSlice& data);

/// The message's own header fields only, from at most the first `kHeaderScanLimit` bytes;
/// bodies aren't looked at. For reading headers of large files cheaply.
MIMEHeaders headers(std::string_view data);

/// Whether `data` looks like mail at all: not empty, and its header block (within the first
/// `kHeaderScanLimit` bytes) has a From, Date, Subject, Message-ID, To, Received or Return-Path
/// field. Lets an importer tell a message from some other file.
bool looksValid(std::string_view data);

// The steps of `parse`, exposed for tests. All are total functions over any bytes.

/// A header block and what follows it, as views into the input.
struct HeadAndBody {
    std::string_view head;
    std::string_view body;
};

/// Splits at the first blank line (LF LF or LF CR LF); the head keeps the first line feed of the
/// pair. A message starting with a blank line has an empty head; one without any blank line is
/// all head.
HeadAndBody splitHeaderBody(std::string_view bytes);

/// The pieces of a multipart body between its `--boundary` delimiter lines, as views into
/// `body`: the preamble and epilogue dropped, each piece without the line end before its closing
/// delimiter. An unclosed body keeps its last piece; a body without any delimiter gives none.
std::vector<std::string_view> splitMultipart(std::string_view body, std::string_view boundary);

/// One part (the root at depth 0) with its subtree. A part without a usable Content-Type takes
/// `defaultType`.
MIMEPart parsePart(const ByteSlice& bytes, int depth, const ContentType& defaultType);

} // namespace qs::MIMEParser
