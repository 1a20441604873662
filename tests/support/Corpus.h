#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qs::test {

/// One message of the shared real-world corpus (QS_CORPUS_DIR).
struct CorpusMessage {
    /// The path relative to the corpus root; for an mbox member, followed by "#" and its index
    /// from 1.
    std::string name;
    /// The raw bytes (an mbox member's without its "From " line).
    std::string bytes;
};

std::filesystem::path corpusRoot();

/// The files MANIFEST.tsv lists, but for licences and notices, relative to the root.
std::vector<std::string> corpusFiles();

bool isMbox(std::string_view relativePath);

/// An mbox file's members: each starts at a "From " line that opens the file (after a byte
/// order mark) or follows an empty line; that line, and the empty line before the next, are
/// left out. No ">From " unescaping.
std::vector<std::string> splitMbox(std::string_view mbox);

/// Every message of the corpus, mbox files split into their non-empty members. Read afresh on
/// each call; throws std::system_error if a listed file can't be read.
std::vector<CorpusMessage> corpusMessages();

} // namespace qs::test
