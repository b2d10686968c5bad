// Tables under the fuzzer.
#pragma once

#include <initializer_list>

#include "core/table.h"

namespace tavo::fuzz {

// Encodes every cell of the tables as a GET would, and expects each list to be sound.
void serve(std::initializer_list<Table *> tables);

// Frees the rows.
void empty(std::initializer_list<Table *> tables);

}  // namespace tavo::fuzz
