#include "sources/tool_dump.h"

#include "core/shell.h"

namespace tavo {

Dump ToolDump::read(const char *source) {
  if (!is_written_) {
    is_written_ = run_in_shell(ShellCommand("%sdatactl get=%s | %sflatkv > %s", tools_, source, tools_, path_));
    if (!is_written_) {
      return {};
    }
  }
  return Dump(path_);
}

}  // namespace tavo
