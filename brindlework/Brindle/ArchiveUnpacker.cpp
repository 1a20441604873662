#include "Brindle/ArchiveUnpacker.h"

#include "Brindle/UpdateError.h"

#include <archive.h>
#include <archive_entry.h>

#include <memory>
#include <set>

namespace brindle::ArchiveUnpacker {

namespace {

namespace fs = std::filesystem;

using Reader = std::unique_ptr<archive, decltype(&archive_read_free)>;
using Writer = std::unique_ptr<archive, decltype(&archive_write_free)>;

[[noreturn]] void refuse() {
    throw UpdateError{"unzip failed"};
}

// A name that stays inside the folder: relative, with no ".." piece.
bool staysInside(const char* name) {
    if (!name || !*name)
        return false;
    const fs::path path(name);
    if (path.is_absolute())
        return false;
    for (const fs::path& piece : path) {
        if (piece == "..")
            return false;
    }
    return true;
}

// Whether `name` lies below a symbolic link the archive made: writing it would follow the link
// wherever it points.
bool throughLink(const char* name, const std::set<fs::path>& links) {
    fs::path prefix;
    const fs::path path = fs::path(name).lexically_normal();
    for (const fs::path& piece : path.parent_path()) {
        prefix /= piece;
        if (links.contains(prefix))
            return true;
    }
    return false;
}

} // namespace

void unpack(std::string_view zip, const fs::path& into) {
    Reader reader(archive_read_new(), &archive_read_free);
    archive_read_support_format_zip(reader.get());
    if (archive_read_open_memory(reader.get(), zip.data(), zip.size()) != ARCHIVE_OK)
        refuse();
    Writer writer(archive_write_disk_new(), &archive_write_free);
    // Entries are written by absolute path below `into`, so libarchive's own checks for
    // absolute names and symbolic links would refuse them all (and any cache folder reached
    // through a link): names are checked here instead, before `into` is put in front.
    archive_write_disk_set_options(writer.get(), ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_TIME |
                                                     ARCHIVE_EXTRACT_SECURE_NODOTDOT);
    std::set<fs::path> links;
    archive_entry* entry = nullptr;
    for (;;) {
        const int status = archive_read_next_header(reader.get(), &entry);
        if (status == ARCHIVE_EOF)
            break;
        if (status != ARCHIVE_OK || !staysInside(archive_entry_pathname(entry)) ||
            throughLink(archive_entry_pathname(entry), links))
            refuse();
        if (archive_entry_filetype(entry) == AE_IFLNK)
            links.insert(fs::path(archive_entry_pathname(entry)).lexically_normal());
        archive_entry_set_pathname(entry, (into / archive_entry_pathname(entry)).c_str());
        if (const char* link = archive_entry_hardlink(entry)) {
            if (!staysInside(link) || throughLink(link, links))
                refuse();
            archive_entry_set_hardlink(entry, (into / link).c_str());
        }
        if (archive_write_header(writer.get(), entry) != ARCHIVE_OK)
            refuse();
        const void* block = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        for (;;) {
            const int read = archive_read_data_block(reader.get(), &block, &size, &offset);
            if (read == ARCHIVE_EOF)
                break;
            if (read != ARCHIVE_OK ||
                archive_write_data_block(writer.get(), block, size, offset) != ARCHIVE_OK)
                refuse();
        }
        if (archive_write_finish_entry(writer.get()) != ARCHIVE_OK)
            refuse();
    }
    if (archive_write_close(writer.get()) != ARCHIVE_OK)
        refuse();
}

} // namespace brindle::ArchiveUnpacker
