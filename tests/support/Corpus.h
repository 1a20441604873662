#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace qs::test {

/// One message of the shared real-world corpus (QS_CORPUS_DIR).
struct CorpusMessage {
    /// Relative to the corpus root; for an mbox member, followed by "#" and its index from 1.
    std::string name;
    std::string bytes;
};

std::filesystem::path corpusRoot();

/// An mbox file's members: each starts at a "From " line that opens the file (after a byte
/// order mark) or follows an empty line; that line, and the empty line before the next, are
/// left out. No ">From " unescaping.
std::vector<std::string> splitMbox(std::string_view mbox);

/// Every message MANIFEST.tsv lists, mbox files split into their non-empty members.
std::vector<CorpusMessage> corpusMessages();

} // namespace qs::test
