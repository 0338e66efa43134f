// Texts as gzip, made and read back without the calls that are counted.
#pragma once

#include <string>

namespace every_fault {

std::string compress(const std::string& text);

// All members, as far as they go. False where the last one is cut off or damaged.
bool expand(const std::string& bytes, std::string* text);

}  // namespace every_fault
