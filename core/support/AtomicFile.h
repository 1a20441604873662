#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace qs::AtomicFile {

/// Writes `bytes` to a temporary file in the target's folder, flushes it to the disk, and
/// renames it over `path`, so a reader sees the old file or the new one and never a part.
/// Throws std::system_error (the platform's error) on any failure; the temporary file is
/// removed then.
void write(const std::filesystem::path& path, std::string_view bytes);

/// Like `write`, but without the flush: for files whose durability is settled by a later
/// `syncFileSystem` of the same folder (a backup batch), where a flush per file would cost
/// more than the whole write.
void writeUnflushed(const std::filesystem::path& path, std::string_view bytes);

/// A file written in pieces and put in place whole, as `write` does with one string: the
/// pieces go to a temporary file beside the target, which `commit` renames over it. Without a
/// commit the temporary file is removed. Every call throws std::system_error on failure.
class Stream {
public:
    /// With `writeBehind`, the disk writing starts while the file is still being written, a
    /// few tens of megabytes at a time, so that the flush of a large file at `commit` has
    /// little left to wait for. Files committed unflushed are better left to the system.
    explicit Stream(std::filesystem::path path, bool writeBehind = true);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void append(std::string_view bytes);

    /// Writes `bytes` at `offset` of what was appended so far (a header filled in last).
    void overwrite(uint64_t offset, std::string_view bytes);

    /// Appends `length` bytes of the open file `fd` from `offset`, copied inside the kernel
    /// where the file system allows (a large file patched, not rewritten from memory).
    void appendFrom(int fd, uint64_t offset, uint64_t length);

    /// Flushes the file to the disk when `flush`, then renames it over the target.
    void commit(bool flush = true);

private:
    std::filesystem::path path_;
    void wrote(uint64_t bytes);

    std::filesystem::path temporary_;
    int fd_ = -1;
    bool writeBehind_;
    uint64_t written_ = 0;
    uint64_t handedToDisk_ = 0;
};

/// The prefix of every temporary file `write` makes, so a crashed run's leftovers can be
/// recognised and removed.
inline constexpr std::string_view temporaryPrefix = ".qs-tmp-";

/// Removes the temporary files in `folder` (not below it) that a writer killed mid-save left:
/// those whose writing process is gone. Never throws; what can't be removed stays.
void removeDeadLeftovers(const std::filesystem::path& folder);

/// Flushes every written file of the file system that holds `path` (syncfs).
/// Throws std::system_error.
void syncFileSystem(const std::filesystem::path& path);

} // namespace qs::AtomicFile
