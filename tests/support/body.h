// File contents that can be told apart at every offset.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Tarnlo::test {

// `size` bytes, each a non-periodic function of its offset; made as they are asked for, so a body
// may be far larger than memory.
class Body {
 public:
  explicit Body(std::int64_t size, std::uint64_t seed = 1) : m_size(size), m_seed(seed) {}

  [[nodiscard]] std::int64_t size() const { return m_size; }
  // The bytes at any offset from 0, beyond the size too.
  void Fill(std::int64_t offset, char* bytes, std::size_t count) const;
  [[nodiscard]] std::string Bytes(std::int64_t offset, std::size_t count) const;

 private:
  std::int64_t m_size;
  std::uint64_t m_seed;
};

// Empty when the file holds the body and nothing else, else what is wrong with it.
std::string FileDifference(const std::wstring& path, const Body& body);
// The same for [begin, end) of the file alone, wherever the file ends.
std::string FileDifference(const std::wstring& path, const Body& body, std::int64_t begin,
                           std::int64_t end);

}  // namespace Tarnlo::test
