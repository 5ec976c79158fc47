// The files that the program reads and writes; `-` is standard input or standard output. For one thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// A file that the command line names.
struct FileUse {
  std::string option, file;
  bool isOutput;
};

// Throws a Failure if a name is empty, if an output is the same file as another output or an input, or if `-` is used
// for two inputs or two outputs.
void checkFiles(const std::vector<FileUse>& uses);

// Throws a Failure if the file cannot be read.
std::string readFile(const std::string& file);

// The first line, without its line end.
std::string firstLine(const std::string& text);

// The output files of one run. Regular files of an earlier run are removed first. New files are written under temporary
// names in the same directory and get their names together, so an interruption leaves no file of an earlier run.
// Devices, pipes and standard output are written directly and never removed.
class OutputFiles {
 public:
  OutputFiles() = default;
  OutputFiles(const OutputFiles&) = delete;
  OutputFiles& operator=(const OutputFiles&) = delete;
  // Removes the files that were written but have no final name yet.
  ~OutputFiles();

  // Removes the file if it exists: it may contain data of another patient. Throws a Failure if that is not possible.
  static void removeOld(const std::string& file);
  // Throws a Failure if the file cannot be written.
  void write(const std::string& file, std::string_view bytes);
  // Gives all written files their names.
  void publish();

 private:
  std::vector<std::pair<std::filesystem::path, std::filesystem::path>> written_;  // temporary and final name
};
