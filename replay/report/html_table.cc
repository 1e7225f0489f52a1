#include "replay/report/html_table.h"

#include "replay/report/printable_text.h"

namespace replay {
namespace {

const char* ClassOf(Look look) {
  if (look == Look::Good) return R"( class="good")";
  return look == Look::Bad ? R"( class="bad")" : "";
}

}  // namespace

std::string Escaped(const std::string& text) {
  std::string html;
  for (const char character : PrintableText(text)) {
    switch (character) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      default:
        html += character;
    }
  }
  return html;
}

std::string TableHtml(const Table& table, const std::string& caption) {
  std::string html = R"(<div class="scroll" tabindex="0" role="region" aria-label=")" + Escaped(caption) +
                     R"("><table class="figures narrow"><caption>)" + Escaped(caption) +
                     "</caption><thead><tr>";
  html += "<td></td>";
  for (size_t column = 1; column < table.front().size(); ++column) {
    html += R"(<th scope="col">)" + Escaped(table.front()[column].text) + "</th>";
  }
  html += "</tr></thead><tbody>";
  for (size_t row = 1; row < table.size(); ++row) {
    html += R"(<tr><th scope="row">)" + Escaped(table[row].front().text) + "</th>";
    for (size_t column = 1; column < table.front().size(); ++column) {
      const Cell cell = column < table[row].size() ? table[row][column] : Cell{};
      html += std::string("<td") + ClassOf(cell.look) + ">" + Escaped(cell.text) + "</td>";
    }
    html += "</tr>";
  }
  return html + "</tbody></table></div>\n";
}

}  // namespace replay
