// Texts and tables as HTML. Any thread.
#ifndef REPLAY_REPORT_HTML_TABLE_H_
#define REPLAY_REPORT_HTML_TABLE_H_

#include <string>

#include "replay/report/text_table.h"

namespace replay {

// For text and attributes: printable, and nothing in it is markup.
std::string Escaped(const std::string& text);

// `caption` is plain text and stands for the heading of the first column.
std::string TableHtml(const Table& table, const std::string& caption);

}  // namespace replay

#endif  // REPLAY_REPORT_HTML_TABLE_H_
