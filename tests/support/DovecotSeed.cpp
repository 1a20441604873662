#include "support/DovecotSeed.h"

#include "demo/DemoMail.h"
#include "support/Corpus.h"
#include "support/Subprocess.h"

#include <cstdio>
#include <fstream>

namespace qs::test {

namespace fs = std::filesystem;

namespace {

// A CR before every LF that has none: line ends as a server keeps them.
std::string withCRLF(std::string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 40);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r'))
            out += '\r';
        out += text[i];
    }
    return out;
}

bool hasBareCR(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n'))
            return true;
    return false;
}

} // namespace

std::vector<std::string> corpusMail(size_t count, const CorpusMailFilter& filter) {
    std::vector<std::string> mail;
    for (const auto& message : corpusMessages()) {
        const std::string& bytes = message.bytes;
        if (bytes.size() < filter.minBytes || bytes.size() > filter.maxBytes ||
            bytes.find('\0') != std::string::npos ||
            (filter.crlfToo ? hasBareCR(bytes) : bytes.find('\r') != std::string::npos) ||
            (filter.fromFirst && !bytes.starts_with("From:")) ||
            (filter.endsWithNewline && !bytes.ends_with("\n")))
            continue;
        mail.push_back(withCRLF(bytes));
        if (mail.size() == count)
            break;
    }
    return mail;
}

void seedFolders(const fs::path& directory, const fs::path& config, const std::string& user,
                 const std::map<std::string, std::vector<SeedMessage>>& folders) {
    fs::path source = directory / ("seed-" + user);
    fs::remove_all(source);
    int counter = 0;
    for (const auto& [folder, messages] : folders) {
        fs::path base = folder == "INBOX" ? source : source / folder;
        for (const char* sub : {"cur", "new", "tmp"})
            fs::create_directories(base / sub);
        for (const SeedMessage& message : messages) {
            char name[64];
            std::snprintf(name, sizeof name, "%08d.seed:2,", counter++);
            fs::path file = base / "cur" / name;
            std::ofstream(file, std::ios::binary) << message.bytes;
            // Dovecot takes a Maildir file's modification time as the message's INTERNALDATE.
            if (message.arrival) {
                fs::last_write_time(
                    file, std::chrono::file_clock::from_sys(
                              std::chrono::sys_seconds{std::chrono::seconds{*message.arrival}}));
            }
        }
    }
    // Dovecot serves mail as nobody, and won't read what it doesn't own.
    runChecked({"chown", "-R", "65534:65534", source.string()});
    runChecked({"doveadm", "-c", config.string(), "import", "-u", user,
                "maildir:" + source.string() + ":LAYOUT=fs", "", "all"});
    fs::remove_all(source);
}

void seedFolders(DovecotFixture& dovecot, const std::string& user,
                 const std::map<std::string, std::vector<SeedMessage>>& folders) {
    seedFolders(dovecot.directory(), dovecot.configFile(), user, folders);
}

void seedFolders(DovecotFixture& dovecot, const std::string& user,
                 const std::map<std::string, std::vector<std::string>>& folders) {
    std::map<std::string, std::vector<SeedMessage>> seeded;
    for (const auto& [folder, messages] : folders)
        for (const std::string& bytes : messages)
            seeded[folder].push_back({bytes, std::nullopt});
    seedFolders(dovecot, user, seeded);
}

std::map<std::string, size_t> seedDemoMail(DovecotFixture& dovecot, const std::string& user,
                                           uint64_t seed, int count) {
    std::map<std::string, std::vector<SeedMessage>> folders;
    for (demo::DemoMessage& message : demo::DemoMail::generate(seed, count)) {
        folders[message.folder].push_back(
            {std::move(message.bytes),
             std::chrono::duration_cast<std::chrono::seconds>(message.date.time_since_epoch())
                 .count()});
    }
    seedFolders(dovecot, user, folders);
    std::map<std::string, size_t> counts;
    for (const auto& [folder, messages] : folders)
        counts[folder] = messages.size();
    return counts;
}

} // namespace qs::test
