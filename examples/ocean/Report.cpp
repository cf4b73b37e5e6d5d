// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors
#include "Report.hpp"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <ostream>
#include <sstream>
#include <utility>

namespace Example {

namespace {

constexpr std::size_t Gap = 2;        // spaces between columns
constexpr double FirstLineAfter = 1;  // seconds, in a log
constexpr double TerminalInterval = 0.1;
constexpr double LogInterval = 2;
constexpr std::size_t ShortestBar = 8;

std::string dashes(std::size_t n) { return std::string(n, '-'); }

}  // namespace

Table::Table(const std::vector<std::string>& heads, std::size_t nNames) : widths_(heads.size()), nNames_(nNames) {
  std::vector<std::string> first, second;
  bool hasSecond = false;
  for (const std::string& head : heads) {
    const std::size_t end = head.find('\n');
    first.push_back(head.substr(0, end));
    second.push_back(end == std::string::npos ? "" : head.substr(end + 1));
    hasSecond = hasSecond || end != std::string::npos;
  }
  addRow(first);
  if (hasSecond) addRow(second);
  addRule();
}

void Table::addRow(const std::vector<std::string>& cells) {
  rows_.push_back(cells);
  rows_.back().resize(widths_.size());
  for (std::size_t i = 0; i < widths_.size(); ++i) widths_[i] = std::max(widths_[i], rows_.back()[i].size());
}

void Table::addRule() { rows_.emplace_back(); }

void Table::print(std::ostream& out) const {
  std::size_t width = 0;
  for (const std::size_t column : widths_) width += column + (width > 0 ? Gap : 0);
  for (const std::vector<std::string>& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths_[i] - row[i].size(), ' ');
      line += std::string(i > 0 ? Gap : 0, ' ') + (i < nNames_ ? row[i] + padding : padding + row[i]);
    }
    if (row.empty()) line = dashes(width);
    line.erase(line.find_last_not_of(' ') + 1);
    out << "  " << line << "\n";
  }
}

double Progress::seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Progress::Progress(std::string work, std::size_t total, std::ostream& out, bool isTerminal, Clock clock)
    : work_(std::move(work)),
      total_(total),
      out_(out),
      isTerminal_(isTerminal),
      clock_(std::move(clock)),
      begin_(clock_()),
      next_(begin_ + (isTerminal_ ? 0 : FirstLineAfter)) {}

Progress::~Progress() {
  if (isTerminal_ && hasWritten_) out_ << '\r' << std::string(Width, ' ') << '\r' << std::flush;
}

void Progress::advance() {
  ++done_;
  const double now = clock_();
  const bool isLast = done_ == total_ && hasWritten_;
  if (now < next_ && !isLast) return;
  next_ = now + (isTerminal_ ? TerminalInterval : LogInterval);
  if (isTerminal_)
    draw(now - begin_);
  else
    writeLine(now - begin_);
  hasWritten_ = true;
}

namespace {

/// Pieces in a second, and the time for those that are left.
std::string pace(std::size_t done, std::size_t total, double spent) {
  if (spent <= 0) return "";
  const double rate = static_cast<double>(done) / spent;
  return "  " + fixed(rate, rate < 10 ? 1 : 0) + "/s  " + waitingTime(static_cast<double>(total - done) / rate) +
         " left";
}

}  // namespace

void Progress::draw(double spent) {
  const std::string before = work_ + " ";
  const std::string after = " " + std::to_string(100 * done_ / total_) + " %  " + std::to_string(done_) + " of " +
                            std::to_string(total_) + pace(done_, total_, spent);
  const std::size_t nOthers = before.size() + after.size() + 2;
  std::string line = before + after.substr(1);
  if (nOthers + ShortestBar <= Width) {
    const std::size_t length = Width - nOthers;
    const std::size_t filled = length * done_ / total_;
    line = before + "[" + std::string(filled, '#') + std::string(length - filled, '.') + "]" + after;
  }
  line.resize(Width, ' ');
  out_ << '\r' << line << std::flush;
}

void Progress::writeLine(double spent) {
  out_ << work_ << ": " << done_ << " of " << total_ << " (" << 100 * done_ / total_ << " %), " << fixed(spent, 1)
       << " s" << (done_ < total_ ? pace(done_, total_, spent) : "") << std::endl;
}

std::string fixed(double value, int digits) {
  if (std::isnan(value)) return "-";
  std::ostringstream text;
  text << std::fixed << std::setprecision(digits) << value;
  return text.str();
}

std::string grouped(unsigned long long number) {
  std::string text = std::to_string(number);
  for (std::size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
  return text;
}

std::string bytes(unsigned long long number) {
  constexpr unsigned long long Kibi = 1024;
  constexpr unsigned long long Mebi = Kibi * Kibi;
  if (number < Kibi) return std::to_string(number) + " B";
  if (number < Mebi) return fixed(static_cast<double>(number) / static_cast<double>(Kibi), 1) + " KiB";
  return fixed(static_cast<double>(number) / static_cast<double>(Mebi), 2) + " MiB";
}

std::string duration(double seconds) {
  if (seconds < 1e-3) return fixed(seconds * 1e6, 1) + " us";
  if (seconds < 1) return fixed(seconds * 1e3, 2) + " ms";
  return fixed(seconds, 2) + " s";
}

std::string waitingTime(double seconds) {
  if (seconds < 9.95) return fixed(seconds, 1) + " s";
  const auto whole = static_cast<unsigned long long>(seconds + 0.5);
  if (whole < 60) return std::to_string(whole) + " s";
  if (whole < 3600) return std::to_string(whole / 60) + " min " + std::to_string(whole % 60) + " s";
  return std::to_string(whole / 3600) + " h " + std::to_string(whole / 60 % 60) + " min";
}

std::string hexadecimal(unsigned long long number) {
  std::ostringstream text;
  text << std::hex << std::setw(16) << std::setfill('0') << number;
  return text.str();
}

unsigned long long residentMemory() {
  std::ifstream statistics("/proc/self/statm");
  unsigned long long total = 0;
  unsigned long long resident = 0;
  if (!(statistics >> total >> resident)) return 0;
  return resident * static_cast<unsigned long long>(sysconf(_SC_PAGESIZE));
}

}  // namespace Example
