#include "tests/fuzz/marked_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/fuzz/fuzz.h"
#include "tests/native/native_path.h"

namespace Tarnlo::fuzz {

MarkedFile::MarkedFile() {
  m_folder = (std::filesystem::temp_directory_path() / "tarnlo_fuzz_XXXXXX").string();
  Require(mkdtemp(m_folder.data()) != nullptr, "a folder can be made");
  const std::filesystem::path path = std::filesystem::path(m_folder) / "target.bin";
  m_descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  Require(m_descriptor >= 0, "a file can be made");
  m_path = os::native::WindowsPath(path);
  Restore(0);
}

MarkedFile::~MarkedFile() {
  close(m_descriptor);
  std::error_code ignored;
  std::filesystem::remove_all(m_folder, ignored);
}

std::string MarkedFile::Read() const {
  struct stat status {};
  Require(fstat(m_descriptor, &status) == 0, "the file is there");
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  Require(pread(m_descriptor, bytes.data(), bytes.size(), 0) == std::ssize(bytes),
          "the file can be read");
  return bytes;
}

const std::string& MarkedFile::Marks() {
  static const std::string marks = [] {
    std::string bytes;
    for (std::size_t at = 0; at < kSize; ++at) bytes += static_cast<char>((at * 31 + 11) & 0xFF);
    return bytes;
  }();
  return marks;
}

void MarkedFile::Restore(std::size_t begin) {
  const char* const bytes = Marks().data() + begin;
  const std::size_t count = kSize - begin;
  Require(ftruncate(m_descriptor, kSize) == 0 &&
              pwrite(m_descriptor, bytes, count, static_cast<off_t>(begin)) ==
                  static_cast<ssize_t>(count),
          "the file can be written");
}

}  // namespace Tarnlo::fuzz
