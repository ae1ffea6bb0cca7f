#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

namespace quorvane::test {

/// A new empty folder that goes, with all it holds, when the object does.
class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "quorvane.XXXXXX").string();
        path_ = ::mkdtemp(name.data());
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string file(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }
    void write(std::string_view name, std::string_view bytes) const {
        std::ofstream(file(name), std::ios::binary) << bytes;
    }
    [[nodiscard]] std::string read(std::string_view name) const {
        std::ifstream in(file(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

  private:
    std::string path_;
};

}  // namespace quorvane::test
