#include "backup/Importer.h"

#include "backup/ImportBatch.h"

namespace qs::Importer {

std::vector<std::string> store(const std::vector<std::string>& messages,
                               std::string_view collection, const ArchiveLayout& layout) {
    ImportBatch batch(layout);
    auto paths = batch.store(messages, collection);
    batch.finish();
    return paths;
}

} // namespace qs::Importer
