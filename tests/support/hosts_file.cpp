#include "tests/support/hosts_file.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace Tarnlo::test {

bool AddHost(const std::string& name, const std::vector<std::string>& addresses) {
  const char* const path = std::getenv("TARNLO_TEST_HOSTS");
  std::string lines;
  for (const std::string& address : addresses) {
    lines.append(address).append(" ").append(name).append("\n");
  }
  // In one piece: another program may be reading.
  if (path != nullptr && std::ofstream(path, std::ios::binary | std::ios::app)
                             .write(lines.data(), static_cast<std::streamsize>(lines.size()))
                             .flush()) {
    return true;
  }
  std::fprintf(stderr, "%s cannot be added: TARNLO_TEST_HOSTS must name the hosts file\n",
               name.c_str());
  return false;
}

}  // namespace Tarnlo::test
