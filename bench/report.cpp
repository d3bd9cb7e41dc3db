#include "report.h"

#include <cstdio>
#include <fstream>

namespace kelp_bench {
namespace {

// Three significant digits in the unit that suits.
std::string timeText(double nanoseconds) {
  const char* const units[] = {"ns", "us", "ms", "s"};
  size_t unit = 0;
  for (; nanoseconds >= 1000 && unit < 3; ++unit) {
    nanoseconds /= 1000;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.3g %s", nanoseconds, units[unit]);
  return text;
}

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", value);
  return text;
}

// Two digits, as more would be noise.
std::string ratio(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2g", value);
  return text;
}

void printHeading() {
  std::puts(
      "| row | here | peer | ratio (quartiles) | target | other peers |\n"
      "|---|---|---|---|---|---|");
}

std::string otherPeers(const Measurement& measurement) {
  std::string text;
  for (size_t i = 2; i < measurement.times.size(); ++i) {
    text += (text.empty() ? "" : ", ") + measurement.times[i].contender + " " +
            timeText(measurement.times[i].median);
  }
  return text;
}

void print(const Measurement& measurement) {
  const std::vector<Times>& times = measurement.times;
  const bool alone = times.size() < 2;
  std::printf("| %s | %s | %s | %s | %s | %s |\n", measurement.row.c_str(),
              timeText(times[0].median).c_str(),
              alone ? "-" : (times[1].contender + " " + timeText(times[1].median)).c_str(),
              alone ? "-"
                    : (ratio(measurement.ratio) + " (" + ratio(measurement.low) + " to " +
                       ratio(measurement.high) + ")")
                          .c_str(),
              ratio(measurement.target).c_str(), otherPeers(measurement).c_str());
  std::fflush(stdout);
}

void writeJson(std::ostream& out, const Measurement& measurement) {
  out << R"(    {"row": ")" << measurement.row << R"(", "target": )" << number(measurement.target)
      << R"(, "ratio": )" << number(measurement.ratio) << R"(, "quartiles": [)"
      << number(measurement.low) << ", " << number(measurement.high) << R"(], "ratio_to_best": )"
      << number(measurement.ratioToBest) << R"(, "nanoseconds": {)";
  const char* separator = "";
  for (const Times& times : measurement.times) {
    out << separator << '"' << times.contender << R"(": )" << number(times.median);
    separator = ", ";
  }
  out << "}}";
}

void writeJson(std::ostream& out, const Slope& slope) {
  out << R"(    {"operation": ")" << slope.name << R"(", "nanoseconds": [)";
  const char* separator = "";
  for (const double time : slope.times) {
    out << separator << number(time);
    separator = ", ";
  }
  out << R"(], "growth": )" << number(slope.worst) << '}';
}

template <class Item>
void writeList(std::ostream& out, const char* name, const std::vector<Item>& items) {
  out << "  \"" << name << "\": [\n";
  for (size_t i = 0; i < items.size(); ++i) {
    writeJson(out, items[i]);
    out << (i + 1 < items.size() ? ",\n" : "\n");
  }
  out << "  ]";
}

}  // namespace

void Report::add(const Measurement& measurement) {
  if (m_measurements.empty()) {
    printHeading();
  }
  print(measurement);
  m_measurements.push_back(measurement);
}

void Report::add(const Slope& slope) {
  if (m_slopes.empty()) {
    std::puts(
        "\n| operation | smallest input | 10 times | 100 times | 1000 times | growth per step, "
        "1 is linear |\n|---|---|---|---|---|---|");
  }
  std::printf("| %s |", slope.name.c_str());
  for (const double time : slope.times) {
    std::printf(" %s |", timeText(time).c_str());
  }
  std::printf(" %.2f |\n", slope.worst);
  std::fflush(stdout);
  m_slopes.push_back(slope);
}

bool Report::write(const std::string& directory) const {
  std::ofstream json(directory + "/table.json");
  json << "{\n";
  writeList(json, "rows", m_measurements);
  json << ",\n";
  writeList(json, "growth", m_slopes);
  json << "\n}\n";
  std::ofstream chart(directory + "/chart.dat");
  for (const Measurement& measurement : m_measurements) {
    chart << '"' << measurement.row << "\" " << number(measurement.ratio) << ' '
          << number(measurement.target) << '\n';
  }
  json.close();
  chart.close();
  return !json.fail() && !chart.fail();
}

}  // namespace kelp_bench
