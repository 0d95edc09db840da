#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace quorvane::tools {

namespace {

bool lineOpen = false;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr size_t kMaxBarWidth = 30;
constexpr size_t kMinBarWidth = 10;
constexpr unsigned kDefaultColumns = 80;

}  // namespace

void endProgressLine() {
    if (!lineOpen) return;
    std::fputc('\n', stdout);
    lineOpen = false;
}

std::string formatBytes(double bytes) {
    static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    while (bytes >= 1024.0 && unit + 1 < std::size(kUnits)) {
        bytes /= 1024.0;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.2f %s", bytes, kUnits[unit]);
    return text;
}

std::string formatRate(double bytes, double seconds) {
    if (seconds <= 0.0) return "-";
    return formatBytes(bytes / seconds) + "/s";
}

unsigned terminalColumns(int fd) {
    winsize size{};
    if (::ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col != 0) return size.ws_col;
    if (const char* variable = std::getenv("COLUMNS")) {
        unsigned columns = 0;
        const char* end = variable + std::strlen(variable);
        const auto [stop, error] = std::from_chars(variable, end, columns);
        if (error == std::errc{} && stop == end && columns != 0) return columns;
    }
    return kDefaultColumns;
}

std::string barLine(const std::string& label, double fraction, const std::string& done, const std::string& rate,
                    unsigned columns) {
    char head[64], tail[64];
    std::snprintf(head, sizeof head, "  %-22s", label.c_str());
    std::snprintf(tail, sizeof tail, " %3.0f%%  %-10s %-12s", fraction * 100.0, done.c_str(), rate.c_str());
    const size_t width = columns == 0 ? 0 : columns - 1;
    std::string line = head;
    const size_t used = line.size() + std::strlen(tail) + 3;  // " [" and "]"
    if (used + kMinBarWidth <= width) {
        const size_t barWidth = std::min(kMaxBarWidth, width - used);
        const auto filled = static_cast<size_t>(std::clamp(fraction, 0.0, 1.0) * static_cast<double>(barWidth));
        line += " [" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "]";
    }
    line += tail;
    if (line.size() > width) line.resize(width);
    return line;
}

Progress::Progress(std::string label, uint64_t totalBytes, bool terminal)
    : label_(std::move(label)),
      total_(totalBytes),
      terminal_(terminal),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {}

double Progress::elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void Progress::update(uint64_t bytesDone) {
    if (terminal_) {
        const auto now = std::chrono::steady_clock::now();
        if (now - lastDraw_ < kRedrawInterval) return;
        lastDraw_ = now;
        draw(bytesDone);
        return;
    }
    const unsigned quarters = total_ == 0 ? 4 : static_cast<unsigned>(bytesDone * 4 / total_);
    // The last quarter is shown by finish(), with the time it took.
    if (quarters > quartersShown_ && quarters < 4) {
        quartersShown_ = quarters;
        draw(bytesDone);
    }
}

void Progress::draw(uint64_t bytesDone) {
    const double fraction = total_ == 0 ? 1.0 : static_cast<double>(bytesDone) / static_cast<double>(total_);
    const std::string done = formatBytes(static_cast<double>(bytesDone));
    const std::string rate = formatRate(static_cast<double>(bytesDone), elapsed());
    if (!terminal_) {
        std::printf("  %-22s %3.0f%%  %s  %s\n", label_.c_str(), fraction * 100.0, done.c_str(), rate.c_str());
        std::fflush(stdout);
        return;
    }
    // Asked at every redraw, so that a window resized meanwhile is followed.
    const std::string line = barLine(label_, fraction, done, rate, terminalColumns(STDOUT_FILENO));
    std::printf("\r%s", line.c_str());
    std::fflush(stdout);
    lineOpen = true;
}

double Progress::finish(uint64_t bytesDone) {
    const double seconds = elapsed();
    if (!terminal_) quartersShown_ = 4;
    draw(bytesDone);
    endProgressLine();
    return seconds;
}

}  // namespace quorvane::tools
