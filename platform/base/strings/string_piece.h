// base::StringPiece: a view of text that somebody else owns.
#ifndef BASE_STRINGS_STRING_PIECE_H_
#define BASE_STRINGS_STRING_PIECE_H_

#include <string_view>

namespace base {

using StringPiece = std::string_view;

}  // namespace base

#endif  // BASE_STRINGS_STRING_PIECE_H_
