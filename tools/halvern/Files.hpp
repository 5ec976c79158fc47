// The files that the program reads and writes; `-` is standard input or standard output. For one thread.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// A file that the command line names.
struct FileUse {
  std::string option, file;
  bool isOutput;
};

// Throws a Failure if an output is the same file as another output or an input, or if `-` is used for two inputs or two
// outputs.
void checkFiles(const std::vector<FileUse>& uses);

// Throws a Failure if the file cannot be read.
std::string readFile(const std::string& file);

// The first line, without its line end.
std::string firstLine(const std::string& text);

// The output files of one run. Regular files are written under temporary names in the same directory and replaced
// together, so that an interruption never leaves files of two runs. Everything else (devices, pipes, standard output)
// is written directly and never removed.
class OutputFiles {
 public:
  OutputFiles() = default;
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;
  // Unless `replace` was called, removes the expected files of earlier runs.
  ~OutputFiles();

  // Announces a file that `write` will write. Does nothing if the name is empty.
  void expect(const std::string& file);
  // Throws a Failure if the file cannot be written.
  void write(const std::string& file, std::string_view bytes);
  // Removes the expected files of earlier runs, and moves the written files to their places.
  void replace();

 private:
  std::map<std::filesystem::path, std::filesystem::path> temporary_;  // by target; empty until written
};

// Writes one file, like OutputFiles.
void writeFile(const std::string& file, std::string_view bytes);
