// What a C++ program may ask of the terminal line reader beyond reading a line: completion.
//
// A line reader belongs to one thread at a time. Lines are bytes in the encoding of the terminal,
// UTF-8 as a rule.
#pragma once

#include <kvfile/platform/lrsupreadline.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kvhost {

// Answers the words that may stand at the cursor. `line` is the line so far, without a newline,
// `cursor` the 0-based byte offset of the cursor in it, at most its size. Stores at `*wordStart`
// the byte offset, at most `cursor`, where the word that is being completed begins (it holds
// `cursor` before the call). Each answer replaces the bytes from there to the cursor as a whole.
// Answer nothing where nothing fits. It is called while the terminal is in raw mode: it must not
// read or write it, nor throw.
using Completer = std::vector<std::string> (*)(std::string_view line, std::size_t cursor,
                                               std::size_t* wordStart);

// Binds Tab to `completer`: a single candidate, or what all candidates begin with, is put in; where
// that adds nothing, the candidates are listed below the line. Null: Tab is an ordinary character,
// as at first. Does nothing for a null `state`.
void lineReaderSetCompleter(LineReaderStateType* state, Completer completer);

}  // namespace kvhost
