// Reads the report exactly as the daemon does: the same expression, the same scans.
#ifndef TESTS_FFMPEG_REPORT_READER_H
#define TESTS_FFMPEG_REPORT_READER_H

#include <regex.h>

#include <cstdio>
#include <string>

struct ReadReport {
  bool matched = false;
  int clipLengthMs = 0;
  float frameRate = 0;
  float tbr = 0;
};

inline ReadReport readReport(const std::string& text) {
  ReadReport report;
  regex_t expression;
  const char* pattern =
      "Duration\\: ([0-9]+\\:[0-9]+\\:[0-9\\.]+), .*?Stream #0\\.[^\\:]+\\: Video\\: "
      "[^\\$]*? kb/s, ([^\\$]* fps, [^\\$]*) tbr";
  if (regcomp(&expression, pattern, REG_EXTENDED) != 0) return report;
  regmatch_t parts[3];
  report.matched = regexec(&expression, text.c_str(), 3, parts, 0) == 0;
  regfree(&expression);
  if (!report.matched) return report;
  const auto group = [&](int i) {
    return text.substr(static_cast<size_t>(parts[i].rm_so),
                       static_cast<size_t>(parts[i].rm_eo - parts[i].rm_so));
  };
  int hours = 0;
  int minutes = 0;
  float seconds = 0;
  sscanf(group(1).c_str(), "%d:%d:%f", &hours, &minutes, &seconds);  // NOLINT(cert-err34-c)
  report.clipLengthMs = static_cast<int>(((hours * 60 + minutes) * 60 + double{seconds}) * 1000);
  sscanf(group(2).c_str(), "%f fps, %f", &report.frameRate, &report.tbr);  // NOLINT(cert-err34-c)
  return report;
}

#endif
