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

// The path of the regular file that the name refers to or would create; empty for anything else.
fs::path regularFile(const std::string& name) {
  std::error_code error;
  if (name == "-") return {};
  const fs::path folder = fs::weakly_canonical(fs::absolute(name).parent_path(), error);
  // These directories contain names of open files, such as the standard streams, that must not be replaced.
  if (folder == "/dev" || folder.string().starts_with("/proc")) return {};
  const fs::file_status status = fs::status(name, error);
  return fs::exists(status) && !fs::is_regular_file(status) ? fs::path() : fs::weakly_canonical(name, error);
}

[[noreturn]] void failToWrite(const std::string& file) {
  throw Failure(status::notWritten, "cannot write " + file + ": " + lastError());
}

// Writes a new file next to `target` that only its owner can read. Returns its name.
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

// Removes a file of an earlier run: it may contain data of another patient, and must not be mistaken for a new one.
void removeOld(const fs::path& file) {
  std::error_code error;
  fs::remove(file, error);
  if (error) say("CANNOT REMOVE " + file.string() + ", WHICH IS FROM AN EARLIER RUN: " + error.message());
}

}  // namespace

void checkFiles(const std::vector<FileUse>& uses) {
  const auto isSame = [](const FileUse& left, const FileUse& right) {
    if (left.file == "-" || right.file == "-") return left.file == right.file && left.isOutput == right.isOutput;
    if (!left.isOutput && !right.isOutput) return false;
    const fs::path file = regularFile(left.file);
    return left.file == right.file || (!file.empty() && file == regularFile(right.file));
  };
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
  // The end is not reached if the file cannot be opened, or cannot be read, like a directory.
  if (!input.eof()) throw Failure(status::wrongUsage, "cannot read " + file + ": " + lastError());
  return text;
}

std::string firstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

OutputFiles::~OutputFiles() {
  for (const auto& [target, temporary] : temporary_) {
    removeOld(target);
    if (!temporary.empty()) removeOld(temporary);
  }
}

void OutputFiles::expect(const std::string& file) {
  const fs::path target = file.empty() ? fs::path() : regularFile(file);
  if (!target.empty()) temporary_.emplace(target, fs::path());
}

void OutputFiles::write(const std::string& file, std::string_view bytes) {
  const fs::path target = regularFile(file);
  if (!target.empty()) {
    temporary_[target] = writeTemporary(target, bytes);
  } else if (file == "-") {
    std::cout << bytes << std::flush;
  } else {
    std::ofstream stream(file, std::ios::binary);
    stream << bytes << std::flush;
    if (!stream) failToWrite(file);
  }
}

void OutputFiles::replace() {
  // Removes all old files before the first new one appears.
  for (const auto& [target, temporary] : temporary_) removeOld(target);
  for (const auto& [target, temporary] : temporary_)
    if (!temporary.empty() && rename(temporary.c_str(), target.c_str()) != 0) failToWrite(target);
  temporary_.clear();
}

void writeFile(const std::string& file, std::string_view bytes) {
  OutputFiles files;
  files.expect(file);
  files.write(file, bytes);
  files.replace();
}
