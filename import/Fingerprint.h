// A file's content in 32 letters.
#pragma once

#include <optional>
#include <string>

namespace tarvo::importing {

/// XXH3 with 128 bits of all that an open file holds, from its beginning wherever it stands, in
/// hexadecimal. It tells pictures apart, but proves nothing against somebody who wants two alike.
/// None, with errno, where the file cannot be read. Any thread.
std::optional<std::string> fingerprintOf(int descriptor);

}  // namespace tarvo::importing
