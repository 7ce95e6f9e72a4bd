// The fields of a word as strtok splits them, and hexadecimal numbers: what
// the busID and the alterpm.conf entries are made of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// The next field of s from pos: separators before it are skipped, it ends at
// the next separator (whose position goes to *end when given) and pos moves
// past that. A separator of '\0', which the texts cannot hold, takes the
// whole rest. false when nothing is left. The field is a view into s.
bool next_field(std::string_view s, size_t &pos, char separator, std::string_view &field,
                size_t *end = nullptr);

// The low 32 bits of a hexadecimal number (0-9, a-f, A-F) of any length, the
// same in the 32-bit and the 64-bit build; false when a character is no
// digit.
bool hex_low_bits(std::string_view digits, uint32_t *value);
