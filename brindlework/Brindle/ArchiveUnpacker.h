#pragma once

#include <filesystem>
#include <string_view>

namespace brindle {

/// Unpacks a zip archive held in memory into a folder, keeping permissions and symbolic
/// links. An entry whose name is absolute or climbs out with "..", or that would be written
/// through a symbolic link, stops the unpacking: the archive is refused, not trimmed.
namespace ArchiveUnpacker {

/// Throws UpdateError("unzip failed") on a damaged or refused archive.
void unpack(std::string_view zip, const std::filesystem::path& into);

} // namespace ArchiveUnpacker

} // namespace brindle
