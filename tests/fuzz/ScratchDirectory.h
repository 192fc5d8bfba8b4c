// A fuzz target's private directory below TMPDIR, removed when the process ends normally.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "tests/fuzz/FuzzInput.h"

class ScratchDirectory {
  public:
    ScratchDirectory() {
        std::string made = (std::filesystem::temp_directory_path() / "fuzz-XXXXXX").string();
        require(mkdtemp(made.data()) != nullptr, "a directory can be made");
        path = made;
    }

    ~ScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    /// Writes a file in it, its directories too.
    void write(const std::string& name, std::string_view bytes) const {
        std::filesystem::create_directories((path / name).parent_path());
        std::ofstream(path / name, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

    /// Removes all that is in it.
    void empty() const {
        for (const std::filesystem::directory_entry& entry : std::filesystem::directory_iterator(path))
            std::filesystem::remove_all(entry.path());
    }

    std::filesystem::path path;
};
