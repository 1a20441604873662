#pragma once

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
