#include "progress.h"

#include <cstdio>

namespace quorvane::tools {

namespace {

bool lineOpen = false;
constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr int kBarWidth = 30;

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
    char bar[kBarWidth + 1];
    const int filled = static_cast<int>(fraction * kBarWidth);
    for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '.';
    bar[kBarWidth] = '\0';
    std::printf("\r  %-22s [%s] %3.0f%%  %-10s %-12s", label_.c_str(), bar, fraction * 100.0, done.c_str(),
                rate.c_str());
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
