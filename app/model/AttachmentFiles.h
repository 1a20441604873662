#pragma once

#include "mime/MailAttachment.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// Scratch copies of attachments for preview. No state.
namespace qs::AttachmentFiles {

/// The longest attachment name kept, in characters and in bytes.
inline constexpr size_t nameCharacters = 120;
inline constexpr size_t nameBytes = 150;

/// Writes the attachment to the temporary directory, under "Quernstead-attachments", then a
/// folder per message (a per-process hash of `messagePath` in lower-case hex), then the
/// sanitised file name ("attachment" when nothing is left of it), replacing a file of that
/// name. Nothing when it can't be written. Files are left for the system to clear.
std::optional<std::filesystem::path> temporaryURL(const MailAttachment& attachment,
                                                  std::string_view messagePath);

/// Writes the attachment's data to `target`, not atomically. The system's description of the
/// failure, or nothing on success.
std::optional<std::string> write(const MailAttachment& attachment,
                                 const std::filesystem::path& target);

} // namespace qs::AttachmentFiles
