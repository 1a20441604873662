#include "support/Corpus.h"

#include "support/FileIO.h"

#include <sstream>

namespace qs::test {

namespace {

// Licence and notice files sit beside the data; they are kept with it but aren't mail.
bool isLicence(std::string_view relativePath) {
    if (relativePath.find("LICENSES/") != std::string_view::npos)
        return true;
    std::string_view base = relativePath.substr(relativePath.rfind('/') + 1);
    return base.find("LICENSE") != std::string_view::npos || base.starts_with("COPYING") ||
           base.starts_with("NOTICE") || base.starts_with("AUTHORS") ||
           base.starts_with("COPYRIGHT");
}

} // namespace

std::filesystem::path corpusRoot() {
    return std::filesystem::path(QS_CORPUS_DIR);
}

std::vector<std::string> splitMbox(std::string_view mbox) {
    if (mbox.starts_with("\xEF\xBB\xBF"))
        mbox.remove_prefix(3);
    std::vector<std::string> members;
    bool previousEmpty = true; // the file's start counts as following an empty line
    while (!mbox.empty()) {
        size_t end = mbox.find('\n');
        std::string_view line =
            mbox.substr(0, end == std::string_view::npos ? mbox.size() : end + 1);
        mbox.remove_prefix(line.size());
        std::string_view content = line;
        while (!content.empty() && (content.back() == '\n' || content.back() == '\r'))
            content.remove_suffix(1);
        if (previousEmpty && content.starts_with("From ")) {
            if (!members.empty()) {
                // The empty line before a separator belongs to the mbox format, not the message.
                std::string& last = members.back();
                last.resize(last.size() - (last.ends_with("\r\n") ? 2 : last.ends_with('\n')));
            }
            members.emplace_back();
            previousEmpty = false;
            continue;
        }
        previousEmpty = content.empty();
        if (!members.empty())
            members.back().append(line); // text before the first separator belongs to none
    }
    return members;
}

std::vector<CorpusMessage> corpusMessages() {
    std::istringstream manifest(FileIO::read(corpusRoot() / "MANIFEST.tsv"));
    std::vector<CorpusMessage> messages;
    std::string line;
    std::getline(manifest, line); // the column names
    while (std::getline(manifest, line)) {
        std::string path = line.substr(0, line.find('\t'));
        if (path.empty() || isLicence(path))
            continue;
        std::string bytes = FileIO::read(corpusRoot() / path);
        if (!path.ends_with(".mbox") && !path.ends_with(".mbox.txt") &&
            !path.ends_with("/mbox.rlug")) {
            messages.push_back({path, std::move(bytes)});
            continue;
        }
        std::vector<std::string> members = splitMbox(bytes);
        for (size_t i = 0; i < members.size(); ++i) {
            // A separator at the very end (a body line that merely looks like one) is no message.
            if (!members[i].empty())
                messages.push_back({path + "#" + std::to_string(i + 1), std::move(members[i])});
        }
    }
    return messages;
}

} // namespace qs::test
