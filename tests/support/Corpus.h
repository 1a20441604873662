#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qs::test {

/// One message of the shared real-world corpus (QS_CORPUS_DIR).
struct CorpusMessage {
    /// The file's path relative to the corpus root; for a member of an mbox file, that path
    /// followed by "#" and the member's 1-based index.
    std::string name;
    /// The raw bytes of the message (for an mbox member: without its "From " separator line).
    std::string bytes;
};

/// The corpus root directory.
std::filesystem::path corpusRoot();

/// The data files of the corpus (every file listed in MANIFEST.tsv that isn't a licence or
/// notice), as paths relative to the root, in manifest order.
std::vector<std::string> corpusFiles();

/// Whether a corpus file (relative path) is an mbox file rather than a single message.
bool isMbox(std::string_view relativePath);

/// An mbox file's members. A member starts at a "From " line that opens the file (after an
/// optional UTF-8 byte order mark) or follows an empty line; the separator line itself is left
/// out, as is the empty line before the next separator. No ">From " unescaping.
std::vector<std::string> splitMbox(std::string_view mbox);

/// Every message of the corpus: single-message files whole, mbox files split into their
/// non-empty members.
/// Read afresh on each call. Throws std::system_error if a listed file can't be read.
std::vector<CorpusMessage> corpusMessages();

} // namespace qs::test
