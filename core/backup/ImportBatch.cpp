#include "backup/ImportBatch.h"

#include "backup/BackupRunner.h"
#include "backup/Importer.h"
#include "mime/EncodedWords.h"
#include "mime/MIMEParser.h"
#include "mime/MessageDate.h"
#include "support/AtomicFile.h"
#include "support/FileIO.h"
#include "vault/FileNames.h"

#include <algorithm>
#include <chrono>
#include <sys/stat.h>

namespace qs {

namespace {

namespace fs = std::filesystem;

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c + 32);
        }
    }
    return text;
}

// The file's modification time: for a message with no date of its own, a day that stays the
// same however often the file is imported (a Maildir file's is its delivery).
std::optional<Date> modificationTime(const fs::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        return std::nullopt;
    }
    return Date(
        std::chrono::duration_cast<Date::duration>(std::chrono::seconds(info.st_mtim.tv_sec) +
                                                   std::chrono::nanoseconds(info.st_mtim.tv_nsec)));
}

bool isMaildir(const fs::path& folder) {
    std::error_code ignored;
    return fs::is_directory(folder / "cur", ignored) || fs::is_directory(folder / "new", ignored);
}

// The regular files of a Maildir's `cur` and `new`, in name order for a stable result.
std::vector<fs::path> maildirFiles(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const char* below : {"cur", "new"}) {
        std::error_code error;
        fs::directory_iterator it(folder / below, error);
        for (; !error && it != fs::directory_iterator(); it.increment(error)) {
            std::error_code kindError;
            if (it->is_regular_file(kindError)) {
                files.push_back(it->path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

ImportBatch::ImportBatch(ArchiveLayout layout) : layout_(std::move(layout)) {}

ImportOutcome ImportBatch::add(const fs::path& path) {
    ImportOutcome outcome;
    outcome.path = path;
    std::error_code error;
    auto status = fs::status(path, error);
    if (error || !fs::exists(status)) {
        outcome.reason = ImportOutcome::Skip::unreadable;
        outcome.error = error ? error : std::make_error_code(std::errc::no_such_file_or_directory);
        outcome.skipped = 1;
        return outcome;
    }
    if (fs::is_directory(status)) {
        if (!isMaildir(path)) {
            outcome.reason = ImportOutcome::Skip::directory;
            outcome.skipped = 1;
            return outcome;
        }
        importMaildir(outcome);
        return outcome;
    }
    // A device or a pipe could be read without end.
    if (!fs::is_regular_file(status)) {
        outcome.reason = ImportOutcome::Skip::unreadable;
        outcome.error = std::make_error_code(std::errc::not_supported);
        outcome.skipped = 1;
        return outcome;
    }
    std::string data;
    try {
        data = FileIO::read(path);
    } catch (const std::system_error& failure) {
        outcome.reason = ImportOutcome::Skip::unreadable;
        outcome.error = failure.code();
        outcome.skipped = 1;
        return outcome;
    }
    if (data.empty()) {
        outcome.reason = ImportOutcome::Skip::empty;
        outcome.skipped = 1;
        return outcome;
    }
    auto extension = lower(path.extension().string());
    if (extension == ".mbox" || extension == ".mbx" || data.starts_with("From ")) {
        auto messages = Importer::splitMbox(data);
        if (messages.empty()) {
            outcome.reason = ImportOutcome::Skip::noMessages;
            outcome.skipped = 1;
            return outcome;
        }
        fileInto(outcome, messages, path.stem().string(), modificationTime(path));
    } else {
        fileInto(outcome, {std::move(data)}, Importer::looseMessages, modificationTime(path));
    }
    return outcome;
}

void ImportBatch::importMaildir(ImportOutcome& outcome) {
    auto folder = outcome.path.lexically_normal();
    auto name = folder.filename().empty() ? folder.parent_path().filename() : folder.filename();
    for (const auto& file : maildirFiles(outcome.path)) {
        try {
            fileInto(outcome, {FileIO::read(file)}, name.string(), modificationTime(file));
        } catch (const std::system_error&) {
            ++outcome.skipped; // one unreadable message doesn't stop the folder
        }
        if (outcome.reason == ImportOutcome::Skip::notWritten) {
            return;
        }
    }
    if (outcome.imported == 0) {
        outcome.reason =
            outcome.skipped == 0 ? ImportOutcome::Skip::noMessages : ImportOutcome::Skip::notMail;
        outcome.skipped = std::max<std::int64_t>(outcome.skipped, 1);
    } else {
        outcome.reason = ImportOutcome::Skip::none;
    }
}

void ImportBatch::fileInto(ImportOutcome& outcome, const std::vector<std::string>& messages,
                           std::string_view collection, std::optional<Date> undated) {
    try {
        auto paths = store(messages, collection, undated);
        outcome.imported += static_cast<std::int64_t>(paths.size());
        outcome.skipped += static_cast<std::int64_t>(messages.size() - paths.size());
        if (outcome.imported == 0) {
            outcome.reason = ImportOutcome::Skip::notMail;
        }
    } catch (const std::system_error& failure) {
        outcome.skipped += static_cast<std::int64_t>(messages.size());
        outcome.reason = ImportOutcome::Skip::notWritten;
        outcome.error = failure.code();
    }
}

const std::string* ImportBatch::alreadyFiled(const std::string& message) {
    if (!filed_) {
        filed_ = BackupRunner::filesBySize(layout_, Importer::importedDirectory);
    }
    auto candidates = filed_->find(message.size());
    if (candidates == filed_->end()) {
        return nullptr;
    }
    for (const auto& path : candidates->second) {
        try {
            if (FileIO::read(layout_.url(path)) == message) {
                return &path;
            }
        } catch (const std::system_error&) {
            // An unreadable file is no match.
        }
    }
    return nullptr;
}

std::vector<std::string> ImportBatch::store(const std::vector<std::string>& messages,
                                            std::string_view collection,
                                            std::optional<Date> undated) {
    auto folder = FileNames::sanitize(collection, 60, 150);
    if (folder.empty()) {
        folder = "Messages";
    }
    const auto base = std::string(Importer::importedDirectory) + "/" + folder + "/";

    std::vector<std::string> paths;
    for (const auto& message : messages) {
        if (message.empty() || !MIMEParser::looksValid(message)) {
            continue;
        }
        // Recognised by its bytes, a message already imported stays where it is, even if the
        // name made now would differ (another day, another time zone).
        if (const std::string* existing = alreadyFiled(message)) {
            paths.push_back(*existing);
            continue;
        }
        auto headers = MIMEParser::headers(message);
        auto date = MessageDate::of(headers);
        if (!date) {
            date = undated.value_or(std::chrono::system_clock::now());
        }
        const auto* subjectField = headers.first("Subject");
        auto subject = subjectField ? EncodedWords::decode(*subjectField) : std::string();
        auto relative =
            base + FileNames::messagePath(*date, subject, "i" + Importer::fingerprint(message));
        auto path = layout_.write(message, relative, *date, ArchiveLayout::Durability::deferred);
        ++written_;
        (*filed_)[message.size()].push_back(path);
        paths.push_back(std::move(path));
    }
    return paths;
}

void ImportBatch::finish() {
    if (written_ > flushed_) {
        AtomicFile::syncFileSystem(layout_.root);
        flushed_ = written_;
    }
}

} // namespace qs
