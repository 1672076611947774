#pragma once

#include <string>

namespace pkg {

// Assigns the user's own directory for temporary files, made where missing, in UTF-8, to `out`.
// Leaves `out` as it was if there is none.
void getTemporaryItemsDir(std::string& out);

}  // namespace pkg
