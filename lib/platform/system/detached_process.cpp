#include "lib/platform/system/detached_process.h"

#include <cerrno>
#include <unistd.h>

#include "lib/platform/base/assert.h"
#include "lib/platform/base/errno_exception.h"
#include "lib/platform/system/child_process.h"

namespace corvo {

pid_t StartDetached(const std::vector<std::string>& argv, const std::string& pid_file) {
  CORVO_ASSERT(!argv.empty());
  std::vector<char*> pointers;
  pointers.reserve(argv.size() + 1);
  for (const std::string& arg : argv) pointers.push_back(const_cast<char*>(arg.c_str()));
  pointers.push_back(nullptr);
  const std::string failure_prefix = "StartDetached child '" + argv[0] + "' failed: ";
  ChildPlan plan;
  plan.program = pointers[0];
  plan.argv = pointers.data();
  plan.search_path = false;
  plan.pid_file = pid_file.c_str();
  plan.detached = true;
  plan.failure_prefix = failure_prefix.c_str();
  const pid_t pid = fork();
  if (pid < 0) throw ErrnoException(errno, "fork");
  if (pid == 0) RunChild(plan);
  return pid;
}

}  // namespace corvo
