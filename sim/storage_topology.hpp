#pragma once
// The storage statements of a topology description (README.md): SCSI hosts
// and disks, the multipath tree, the volume manager and its query command.

#include "storage_desc.hpp"

#include <string>
#include <vector>

bool is_storage_statement(const std::string& verb);

// words: the statement split into words; line: its text as written, for
// the output lines of the query command, which keep their blanks. Throws
// ParseError.
void storage_statement(const std::vector<std::string>& words, const std::string& line,
                       StorageDesc& storage);

// MAJOR:MINOR as a dev= value gives it. Throws ParseError.
std::pair<unsigned, unsigned> device_number(const std::string& text);
