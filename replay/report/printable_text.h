// Text from recordings made safe to show: on a terminal, and to somebody who reads it. Any thread.
#ifndef REPLAY_REPORT_PRINTABLE_TEXT_H_
#define REPLAY_REPORT_PRINTABLE_TEXT_H_

#include <string>

namespace replay {

// Length of the UTF-8 sequence that starts at `at`; 0 when there is none.
size_t SequenceLength(const std::string& text, size_t at);

// Text in one line, with what would act on a terminal or turn the order of the letters around written as an
// escape: control characters, line and paragraph separators and the controls of bidirectional text as
// "\u202e", bytes that are not UTF-8 as "\xff".
std::string PrintableText(const std::string& text);

}  // namespace replay

#endif  // REPLAY_REPORT_PRINTABLE_TEXT_H_
