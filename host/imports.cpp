#include "host/imports.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <cstdint>

namespace tavo {

std::vector<std::string_view> imported_names(void *library) {
  link_map *map = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &map) != 0) {
    return {};
  }
  const ElfW(Sym) *symbols = nullptr;
  const char *strings = nullptr;
  const std::uint32_t *hash = nullptr;
  for (const ElfW(Dyn) *entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_SYMTAB) {
      symbols = reinterpret_cast<const ElfW(Sym) *>(entry->d_un.d_ptr);
    } else if (entry->d_tag == DT_STRTAB) {
      strings = reinterpret_cast<const char *>(entry->d_un.d_ptr);
    } else if (entry->d_tag == DT_GNU_HASH) {
      hash = reinterpret_cast<const std::uint32_t *>(entry->d_un.d_ptr);
    }
  }
  if (symbols == nullptr || strings == nullptr || hash == nullptr) {
    return {};
  }
  // The hash table covers what the library exports. Its second word is the number of the first such symbol; the symbols
  // in front of it are the imported ones.
  const std::uint32_t first_exported = hash[1];
  std::vector<std::string_view> names;
  for (std::uint32_t i = 1; i < first_exported; ++i) {
    if (symbols[i].st_shndx == SHN_UNDEF && ELF64_ST_BIND(symbols[i].st_info) == STB_GLOBAL) {
      names.emplace_back(strings + symbols[i].st_name);
    }
  }
  return names;
}

}  // namespace tavo
