#include "sources/tool_dump.h"

#include "core/shell.h"
#include "core/text.h"

namespace tavo {

Dump ToolDump::read(const char *source) {
  if (!is_written_) {
    is_written_ = run_in_shell("%sdatactl get=%s | %sflatkv > %s", tools_, source, tools_, path_);
    if (!is_written_) {
      return {};
    }
  }
  return Dump(path_);
}

bool ToolDump::value(const char *source, const char *key, const char *separator, int n, char *out) {
  return read(source).value(Needle(key, separator), n, out);
}

bool ToolDump::value_without_tool(const char *key, const char *separator, int n, char *out) const {
  return read_without_tool().value(Needle(key, separator), n, out);
}

bool ToolDump::write_figure(const char *source, const Needle &needle,
                            std::int32_t (*figure)(const Dump &dump, const Needle &of), char *out) {
  const Dump dump = read(source);
  if (dump.opened()) {
    format_text(out, dump_value_size, "%d", figure(dump, needle));
  }
  return dump.opened();
}

bool ToolDump::count(const char *source, const char *key, const char *separator, char *out) {
  return write_figure(
      source, Needle(key, separator), [](const Dump &dump, const Needle &of) { return dump.count(of); }, out);
}

bool ToolDump::sum(const char *source, const char *key, const char *separator, char *out) {
  return write_figure(
      source, Needle(key, separator), [](const Dump &dump, const Needle &of) { return dump.sum(of); }, out);
}

}  // namespace tavo
