// Makes text from recordings safe to show on a terminal and to readers. Any thread.
#ifndef REPLAY_REPORT_PRINTABLE_TEXT_H_
#define REPLAY_REPORT_PRINTABLE_TEXT_H_

#include <string>

namespace replay {

// The length of the UTF-8 sequence that starts at `at`; 0 if there is none.
size_t SequenceLength(const std::string& text, size_t at);

// Returns the text in one line. Everything that a terminal would act on, or that would change the order of
// the letters, is escaped: control characters, line and paragraph separators and the controls of
// bidirectional text as "\u202e", and bytes that are not UTF-8 as "\xff".
std::string PrintableText(const std::string& text);

}  // namespace replay

#endif  // REPLAY_REPORT_PRINTABLE_TEXT_H_
