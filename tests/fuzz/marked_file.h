// A file that shows where it was written to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Tarnlo::fuzz {

// A file of `kSize` bytes, each known from its offset, in a folder of its own.
//
// Lifetime: both are removed at the end.
class MarkedFile {
 public:
  static constexpr std::size_t kSize = 24576;

  MarkedFile();
  MarkedFile(const MarkedFile&) = delete;
  MarkedFile& operator=(const MarkedFile&) = delete;
  ~MarkedFile();

  [[nodiscard]] const std::wstring& path() const { return m_path; }
  // All of it, as it is now.
  [[nodiscard]] std::string Read() const;
  // What `Restore` leaves in the whole file.
  static const std::string& Marks();
  // Puts the marks back from here on, and the size.
  void Restore(std::size_t begin);

 private:
  std::string m_folder;
  std::wstring m_path;
  int m_descriptor = -1;
};

}  // namespace Tarnlo::fuzz
