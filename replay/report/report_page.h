// The unchanging parts of the HTML report. Made at configuration from the files of page/.
#ifndef REPLAY_REPORT_REPORT_PAGE_H_
#define REPLAY_REPORT_REPORT_PAGE_H_

namespace replay {

extern const char* const kPageBegin;         // up to the style element, head still open
extern const char* const kPageStyle;         // what stands in the style element
extern const char* const kPageStyleSha256;   // its hash, hexadecimal
extern const char* const kPageFilter;        // the form that narrows down what is shown; the script shows it
extern const char* const kPageLegend;        // explains the marks of the waterfalls
extern const char* const kPageScript;        // what stands in the script element
extern const char* const kPageScriptSha256;  // its hash, hexadecimal

}  // namespace replay

#endif  // REPLAY_REPORT_REPORT_PAGE_H_
