// The digest of the engine beside OpenSSL's, in turns, over blocks of several sizes.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "bench/timed_download.h"
#include "engine/md5.h"

namespace Tarnlo::bench {
namespace {

constexpr std::array<std::int64_t, 4> kSizes = {64, 1'024, 65'536, 64 << 20};

std::vector<char> Block(std::int64_t size) {
  std::vector<char> block(static_cast<std::size_t>(size));
  std::uint32_t number = 1;
  for (char& byte : block) byte = static_cast<char>((number = number * 1664525 + 1013904223) >> 24);
  return block;
}

void Ours(benchmark::State& state) {
  const std::vector<char> block = Block(state.range(0));
  for (auto _ : state) {
    MD5 md5;
    md5.Update(block.data(), block.size());
    md5.Finalize();
    benchmark::DoNotOptimize(md5);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void OpenSsl(benchmark::State& state) {
  const std::vector<char> block = Block(state.range(0));
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  const EVP_MD* const md5 = EVP_md5();
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  for (auto _ : state) {
    EVP_DigestInit_ex(context, md5, nullptr);
    EVP_DigestUpdate(context, block.data(), block.size());
    EVP_DigestFinal_ex(context, digest.data(), nullptr);
    benchmark::DoNotOptimize(digest);
  }
  EVP_MD_CTX_free(context);
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

// Keeps the bytes per second of every repetition, by "Ours/64" and the like.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const auto rate = run.counters.find("bytes_per_second");
      if (rate == run.counters.end()) continue;
      m_rates[run.run_name.function_name + "/" + run.run_name.args].push_back(rate->second);
    }
  }
  [[nodiscard]] double Rate(const std::string& name, std::int64_t size) const {
    const auto found = m_rates.find(name + "/" + std::to_string(size));
    return found == m_rates.end() ? 0 : Median(found->second) / 1e6;
  }

 private:
  std::map<std::string, std::vector<double>> m_rates;
};

void Print(const Collector& collected) {
  std::printf("%12s %14s %14s %8s\n", "bytes", "MD5 here MB/s", "OpenSSL MB/s", "ratio");
  for (const std::int64_t size : kSizes) {
    const double ours = collected.Rate("Ours", size);
    const double theirs = collected.Rate("OpenSsl", size);
    std::printf("%12lld %14.1f %14.1f %8.3f\n", static_cast<long long>(size), ours, theirs,
                theirs > 0 ? ours / theirs : 0);
  }
}

}  // namespace
}  // namespace Tarnlo::bench

int main() {
  using namespace Tarnlo::bench;
  std::string program = "bench_md5";
  std::string in_turns = "--benchmark_enable_random_interleaving=true";
  std::array<char*, 2> arguments = {program.data(), in_turns.data()};
  auto count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  for (const std::int64_t size : kSizes) {
    for (auto* const function : {&Ours, &OpenSsl}) {
      benchmark::RegisterBenchmark(function == &Ours ? "Ours" : "OpenSsl", function)
          ->Arg(size)
          ->MinTime(0.2)
          ->Repetitions(9);
    }
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  Print(collector);
  return 0;
}
