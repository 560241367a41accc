# Measurements, on Linux alone, where there is something to measure beside. Each program prints its
# table; scripts/bench runs them.
find_package(benchmark REQUIRED)
find_package(OpenSSL REQUIRED)

add_custom_target(bench)
# add_bench(NAME LIBRARY...): from bench/NAME_bench.cpp.
function(add_bench name)
  add_executable(bench_${name} EXCLUDE_FROM_ALL
    "${PROJECT_SOURCE_DIR}/bench/${name}_bench.cpp" "${PROJECT_SOURCE_DIR}/bench/timed_download.cpp")
  target_link_libraries(bench_${name} PRIVATE test_support tarnlo_static tarnlo_options ${ARGN})
  add_dependencies(bench bench_${name})
endfunction()

add_bench(md5 benchmark::benchmark OpenSSL::Crypto)
add_bench(download CURL::libcurl)
add_bench(saving)
