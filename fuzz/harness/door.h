// What every door has: the function that it defines, and the check that ends the program.
#pragma once

#include <cstdint>
#include <span>

namespace tavo::fuzz {

using Octets = std::span<const std::uint8_t>;

// Defined by each door: tries one input. What it changes it takes back, so that an input does the same wherever in a
// run it comes.
void try_input(Octets input);

// Whether an input is being tried. Between inputs libFuzzer's own calls reach what the harness intercepts.
bool is_trying();

// Ends the program like a crash unless the condition holds: libFuzzer then keeps the input.
void expect(bool holds, const char *what);

}  // namespace tavo::fuzz
