#pragma once

#include "support/FileIO.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace brindle::test {

namespace fs = std::filesystem;

inline void writeFile(const fs::path& path, const std::string& text) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// A scratch folder holding an installed program folder "opt/App" whose bin/app says `version`.
struct ScratchBundle {
    explicit ScratchBundle(const std::string& version) { writeProgram(installed, version); }

    // A program folder at `folder`: an executable bin/app that prints `version`, and a data file.
    static void writeProgram(const fs::path& folder, const std::string& version,
                             const std::string& payload = "data") {
        fs::remove_all(folder);
        writeFile(folder / "bin/app", "#!/bin/sh\necho " + version + "\n");
        fs::permissions(folder / "bin/app", fs::perms::owner_all);
        writeFile(folder / "share/data.txt", payload);
    }
    std::string program() const { return qs::FileIO::read(installed / "bin/app"); }

    qs::test::TemporaryDirectory directory;
    const fs::path root = directory.path();
    const fs::path installed = root / "opt/App";
};

} // namespace brindle::test
