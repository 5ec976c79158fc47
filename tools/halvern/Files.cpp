#include "Files.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <iostream>

#include "Terminal.hpp"

namespace fs = std::filesystem;

namespace {

std::string lastError() { return std::generic_category().message(errno); }

// The absolute path without symbolic links. The file may not exist yet.
fs::path resolved(fs::path path) {
  std::error_code error;
  path = fs::weakly_canonical(fs::absolute(path, error), error);
  while (fs::is_symlink(path, error))  // the link leads to a file that does not exist
    path = fs::weakly_canonical(path.parent_path() / fs::read_symlink(path, error), error);
  return path;
}

// The path of the regular file that the name refers to or would create. Empty if the name refers to anything else.
fs::path regularFile(const std::string& name) {
  if (name == "-") return {};
  std::error_code error;
  const std::string folder = resolved(fs::path(name).parent_path() / ".");
  // These directories contain the names of open files, such as the standard streams. The program must not replace such
  // names.
  if (folder == "/dev" || folder == "/proc" || folder.starts_with("/proc/")) return {};
  const fs::file_status status = fs::status(name, error);
  return fs::exists(status) && !fs::is_regular_file(status) ? fs::path() : resolved(name);
}

[[noreturn]] void failToWrite(const std::string& file) {
  throw Failure(status::notWritten, "cannot write " + file + ": " + lastError());
}

// Writes a new file in the directory of `target`, for its owner only. Returns the name of the new file.
fs::path writeTemporary(const fs::path& target, std::string_view bytes) {
  std::string name = target.parent_path() / ('.' + target.filename().string() + ".XXXXXX");
  const int descriptor = mkostemp(name.data(), O_CLOEXEC);
  if (descriptor == -1) failToWrite(target);
  ssize_t written = 0;
  while (!bytes.empty() && (written = ::write(descriptor, bytes.data(), bytes.size())) > 0)
    bytes.remove_prefix(static_cast<std::size_t>(written));
  const bool isStored = written >= 0 && fsync(descriptor) == 0;
  const int error = errno;
  close(descriptor);
  if (isStored) return name;
  unlink(name.c_str());
  errno = error;
  failToWrite(target);
}

}  // namespace

void checkFiles(const std::vector<FileUse>& uses) {
  const auto isSame = [](const FileUse& left, const FileUse& right) {
    if (!left.isOutput && !right.isOutput) return left.file == "-" && right.file == "-";
    if (left.isOutput != right.isOutput && (left.file == "-" || right.file == "-")) return false;
    const auto pathOf = [](const FileUse& use) {
      return use.file == "-" ? fs::path("/dev/stdout") : resolved(use.file);
    };
    std::error_code error;
    return pathOf(left) == pathOf(right) || fs::equivalent(pathOf(left), pathOf(right), error);
  };
  for (const FileUse& use : uses)
    if (use.file.empty()) throw Failure(status::wrongUsage, use.option + ": the name of the file is empty");
  for (auto left = uses.begin(); left != uses.end(); ++left)
    for (auto right = left + 1; right != uses.end(); ++right)
      if (isSame(*left, *right))
        throw Failure(status::wrongUsage, left->option + " and " + right->option + " are the same file, " + left->file);
}

std::string readFile(const std::string& file) {
  std::ifstream stream;
  if (file != "-") stream.open(file, std::ios::binary);
  std::istream& input = file == "-" ? std::cin : stream;
  std::string text;
  char piece[4096];
  do {
    input.read(piece, sizeof piece);
    text.append(piece, static_cast<std::size_t>(input.gcount()));
  } while (input);
  // `eof` is false if the file cannot be opened or read; a directory cannot be read.
  if (!input.eof()) throw Failure(status::wrongUsage, "cannot read " + file + ": " + lastError());
  return text;
}

std::string firstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

OutputFiles::~OutputFiles() {
  for (const auto& [temporary, target] : written_) unlink(temporary.c_str());
}

void OutputFiles::removeOld(const std::string& file) {
  std::error_code error;
  if (const fs::path old = regularFile(file); !old.empty()) fs::remove(old, error);
  if (error) throw Failure(status::notWritten, "cannot remove the old file " + file + ": " + error.message());
}

void OutputFiles::write(const std::string& file, std::string_view bytes) {
  const fs::path target = regularFile(file);
  if (!target.empty()) {
    written_.emplace_back(writeTemporary(target, bytes), target);
  } else if (file == "-") {
    std::cout << bytes << std::flush;
  } else {
    std::ofstream stream(file, std::ios::binary);
    stream << bytes << std::flush;
    if (!stream) failToWrite(file);
  }
}

void OutputFiles::publish() {
  for (const auto& [temporary, target] : written_)
    if (rename(temporary.c_str(), target.c_str()) != 0) failToWrite(target);
  written_.clear();
}
