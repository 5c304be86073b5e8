#pragma once

#include <string>
#include <vector>

namespace vorn {

namespace unit {

/// A fresh folder, removed with everything in it at the end of the scope.
class FOLDER {
 public:
  FOLDER();
  ~FOLDER();
  FOLDER(const FOLDER&) = delete;
  FOLDER& operator=(const FOLDER&) = delete;

  const std::string& Path() const { return m_path; }
  std::string File(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

/// The lines of a text file without line ends; none when there is no such file.
std::vector<std::string> ReadLines(const std::string& path);

/// The lines of a log without their time stamps: "[INF] vorn is started".
std::vector<std::string> ReadLog(const std::string& path);

void WriteFile(const std::string& path, const std::string& text);

}  // namespace unit

}  // namespace vorn
