// The constant parts of the HTML report. CMake makes them from the files of page/.
#ifndef REPLAY_REPORT_REPORT_PAGE_H_
#define REPLAY_REPORT_REPORT_PAGE_H_

namespace replay {

extern const char* const kPageBegin;        // up to the style element, head still open
extern const char* const kPageStyle;        // the content of the style element
extern const char* const kPageStyleSha256;  // its hash, hexadecimal
extern const char* const kPageFilter;  // the form that filters what is shown; the script makes it visible
extern const char* const kPageLegend;  // explains the marks of the waterfalls
extern const char* const kPageScript;  // the content of the script element
extern const char* const kPageScriptSha256;  // its hash, hexadecimal

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_PAGE_H_
