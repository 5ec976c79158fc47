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

// Throws a Failure when an output is the same file as another output or an input, or when `-` stands for two inputs or
// two outputs.
void checkFiles(const std::vector<FileUse>& uses);

std::string readFile(const std::string& file);

// The first line, without its end.
std::string firstLine(const std::string& text);

// Output files that hold the results of one run together. Regular files are written under temporary names in the same
// directory and replaced together, so that an interruption never leaves files of two runs. Everything else (devices,
// pipes, standard output) is written directly and never removed.
class OutputFiles {
 public:
  OutputFiles() = default;
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;
  // Unless `replace` was called, removes the expected files of earlier runs.
  ~OutputFiles();

  // No file if the name is empty.
  void expect(const std::string& file);
  // Throws a Failure if the file cannot be written.
  void write(const std::string& file, std::string_view bytes);
  // Removes the expected files of earlier runs, and puts those that were written in their place.
  void replace();

 private:
  std::map<std::filesystem::path, std::filesystem::path> temporary_;  // by its target; empty before it is written
};

// Writes one file.
void writeFile(const std::string& file, std::string_view bytes);
