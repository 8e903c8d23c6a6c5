// A folder with a test's files, removed with all that is in it.
#ifndef MORVIK_TESTS_FOLDER_H
#define MORVIK_TESTS_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

namespace morvik {

class Folder {
  public:
    Folder() {
        std::string name = std::filesystem::temp_directory_path() / "morvik-XXXXXX";
        path_ = std::filesystem::canonical(mkdtemp(name.data()));
    }
    ~Folder() {
        std::filesystem::current_path("/");
        std::filesystem::remove_all(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path(const std::string& name) const { return path_ / name; }
    const std::string& path() const { return path_.native(); }

    // The path of a new file; folders on the way to it are made.
    std::string file(const std::string& name, const std::string& text = "") const {
        std::filesystem::create_directories((path_ / name).parent_path());
        std::ofstream(path_ / name) << text;
        return path(name);
    }

  private:
    std::filesystem::path path_;
};

}  // namespace morvik

#endif
