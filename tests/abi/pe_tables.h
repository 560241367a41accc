// What a DLL offers and what it asks for, read from its file.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace Tarnlo::test {

// A 64-bit PE file. Addresses in it are relative to the image, which its sections place.
class PeFile {
 public:
  explicit PeFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    m_bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }

  [[nodiscard]] std::set<std::string> Exports() const {
    const auto table = At<IMAGE_EXPORT_DIRECTORY>(Directory(IMAGE_DIRECTORY_ENTRY_EXPORT));
    std::set<std::string> names;
    for (DWORD i = 0; i < table.NumberOfNames; ++i) {
      names.insert(TextAt(At<DWORD>(table.AddressOfNames + i * 4)));
    }
    if (table.NumberOfFunctions != table.NumberOfNames) names.insert("(one without a name)");
    return names;
  }
  [[nodiscard]] std::set<std::string> ImportedModules() const {
    std::set<std::string> names;
    for (DWORD at = Directory(IMAGE_DIRECTORY_ENTRY_IMPORT);;
         at += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
      const auto entry = At<IMAGE_IMPORT_DESCRIPTOR>(at);
      if (entry.Name == 0) return names;
      names.insert(TextAt(entry.Name));
    }
  }

 private:
  template <typename T>
  [[nodiscard]] T Raw(std::size_t offset) const {
    T value;
    std::memcpy(&value, m_bytes.substr(offset, sizeof value).data(), sizeof value);
    return value;
  }
  [[nodiscard]] std::size_t HeaderOffset() const {
    return static_cast<std::size_t>(Raw<IMAGE_DOS_HEADER>(0).e_lfanew);
  }
  [[nodiscard]] DWORD Directory(int entry) const {
    return Raw<IMAGE_NT_HEADERS64>(HeaderOffset())
        .OptionalHeader.DataDirectory[entry]
        .VirtualAddress;
  }
  [[nodiscard]] std::size_t OffsetOf(DWORD address) const {
    const auto headers = Raw<IMAGE_NT_HEADERS64>(HeaderOffset());
    std::size_t at = HeaderOffset() + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                     headers.FileHeader.SizeOfOptionalHeader;
    for (int i = 0; i < headers.FileHeader.NumberOfSections; ++i) {
      const auto section = Raw<IMAGE_SECTION_HEADER>(at);
      if (address >= section.VirtualAddress &&
          address < section.VirtualAddress + section.SizeOfRawData) {
        return section.PointerToRawData + (address - section.VirtualAddress);
      }
      at += sizeof section;
    }
    return m_bytes.size();
  }
  template <typename T>
  [[nodiscard]] T At(DWORD address) const {
    return Raw<T>(OffsetOf(address));
  }
  [[nodiscard]] std::string TextAt(DWORD address) const {
    return m_bytes.substr(OffsetOf(address)).c_str();
  }

  std::string m_bytes;
};

inline std::filesystem::path FileOfModule(const wchar_t* name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(GetModuleHandleW(name), path, MAX_PATH);
  return path;
}

}  // namespace Tarnlo::test
