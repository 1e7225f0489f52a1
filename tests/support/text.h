// Texts that tests make and compare. Any thread.
#ifndef TESTS_SUPPORT_TEXT_H_
#define TESTS_SUPPORT_TEXT_H_

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace tests {

// The words between blanks, as a shell reads a line without quotes.
inline std::vector<std::string> Words(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// The message of the std::runtime_error that `act` throws; "none" when it throws none.
template <typename Act>
std::string ErrorOf(const Act& act) {
  try {
    act();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

// What the file holds; empty when it cannot be read.
inline std::string TextOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace tests

#endif  // TESTS_SUPPORT_TEXT_H_
