// A private folder that goes with its owner, and the files in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo::test {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = std::filesystem::temp_directory_path() / "tarvo-test-XXXXXX";
    path_ = ::mkdtemp(pattern.data());
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::string& path() const { return path_; }
  std::string path(std::string_view name) const { return path_ + "/" + std::string(name); }

  /// Writes `name` with the folders above it, and returns its path.
  std::string write(std::string_view name, std::string_view content) const {
    std::string file = path(name);
    std::filesystem::create_directories(std::filesystem::path(file).parent_path());
    std::ofstream(file, std::ios::binary) << content;
    return file;
  }

  /// An executable shell script.
  std::string writeScript(std::string_view name, std::string_view body) const {
    std::string file = write(name, "#!/bin/sh\n" + std::string(body));
    std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    return file;
  }

  /// Content of `name`; empty text when there is none.
  std::string read(std::string_view name) const {
    std::ostringstream content;
    content << std::ifstream(path(name), std::ios::binary).rdbuf();
    return content.str();
  }
  bool exists(std::string_view name) const { return std::filesystem::exists(path(name)); }
  /// Names in the folder `name`; none when there is no such folder.
  std::vector<std::string> names(std::string_view name) const {
    std::vector<std::string> all;
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(path(name), none))
      all.push_back(entry.path().filename());
    return all;
  }

 private:
  std::string path_;
};

/// Sets an environment variable and puts the former value back.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const std::string& value) : name_(name) {
    if (const char* former = std::getenv(name)) former_ = former;
    ::setenv(name, value.c_str(), 1);
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
  ~ScopedEnvironment() {
    if (former_) {
      ::setenv(name_, former_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> former_;
};

}  // namespace tarvo::test
