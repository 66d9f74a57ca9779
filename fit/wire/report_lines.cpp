#include "fit/wire/report_lines.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

namespace {

constexpr size_t kLongestText = 300;
constexpr size_t kLongestWord = 40;
constexpr double kThousandths = 1000;

const std::set<std::string, std::less<>> kNumbers = {
    "bytes", "width", "height", "similarity", "encodes", "orientation", "metadata", "milliseconds"};
const std::set<std::string, std::less<>> kWords = {"format", "videoCodec", "audioCodec"};
const std::set<std::string, std::less<>> kFailures = {"NotAPhoto",  "NotAMovie",  "NotSupported",
                                                      "Damaged",    "TooLarge",   "LimitTooSmall",
                                                      "CannotRead", "CannotWrite"};

// The next word of a line, which is taken from it.
std::string takeWord(std::string* line) {
  const size_t space = std::min(line->find(' '), line->size());
  std::string word = line->substr(0, space);
  line->erase(0, std::min(space + 1, line->size()));
  return word;
}

bool parseNumber(const std::string& text, int64_t* number) {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), *number);
  return result.ec == std::errc() && result.ptr == text.data() + text.size() && *number >= 0;
}

// Plain text that may go into a D-Bus message.
std::string printable(std::string text) {
  text.resize(std::min(text.size(), kLongestText));
  for (char& letter : text) {
    if (letter < ' ' || letter > '~') letter = '?';
  }
  return text;
}

void takeResult(std::string words, WorkerReport* report) {
  ReportedNumbers numbers;
  while (!words.empty()) {
    const std::string word = takeWord(&words);
    const size_t equals = word.find('=');
    int64_t number = 0;
    if (equals == std::string::npos || !kNumbers.contains(word.substr(0, equals)) ||
        !parseNumber(word.substr(equals + 1), &number)) {
      return;
    }
    numbers[word.substr(0, equals)] = number;
  }
  report->result = numbers;
}

}  // namespace

std::string progressLine(double share) {
  return "progress " + std::to_string(std::lround(share * kThousandths)) + "\n";
}

std::string writingLine() {
  return "writing\n";
}

std::string wordLine(const std::string& name, const std::string& word) {
  return "word " + name + " " + word + "\n";
}

std::string resultLine(const ReportedNumbers& numbers) {
  std::string line = "result";
  for (const auto& [name, number] : numbers) {
    line += " " + name + "=" + std::to_string(number);
  }
  return line + "\n";
}

std::string failureLine(const FitFailure& failure) {
  return "failure " + failure.name + " " + std::to_string(failure.smallestBytes) + " " +
         printable(failure.message) + "\n";
}

void takeReportLine(const std::string& line, WorkerReport* report) {
  if (report->result || report->failure) return;
  std::string rest = line;
  const std::string kind = takeWord(&rest);
  int64_t number = 0;
  if (kind == "progress" && parseNumber(rest, &number)) {
    report->progress =
        std::clamp(static_cast<double>(number) / kThousandths, report->progress, 1.0);
  } else if (kind == "word") {
    const std::string name = takeWord(&rest);
    if (kWords.contains(name)) report->words[name] = printable(rest.substr(0, kLongestWord));
  } else if (kind == "writing") {
    report->writes = true;
  } else if (kind == "result") {
    takeResult(rest, report);
  } else if (kind == "failure") {
    FitFailure failure;
    failure.name = takeWord(&rest);
    if (!kFailures.contains(failure.name) ||
        !parseNumber(takeWord(&rest), &failure.smallestBytes)) {
      return;
    }
    failure.message = printable(rest);
    report->failure = failure;
  }
}
