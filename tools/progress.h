// Progress of one stream. On a terminal a bar is redrawn in place (at most ten times a second),
// as wide as the terminal allows; otherwise a plain line is printed at each quarter, so logs
// stay short and readable.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace quorvane::tools {

// Ends a bar that is being drawn, so that the next line does not overwrite it.
void endProgressLine();

// Human-readable byte counts and rates: "512 KiB", "1.00 GiB", "2.31 GiB/s".
std::string formatBytes(double bytes);
std::string formatRate(double bytes, double seconds);

// Columns of the terminal on `fd`: its window size, else $COLUMNS, else 80.
unsigned terminalColumns(int fd);

// The bar's line for a terminal `columns` wide, without the carriage return that starts it.
// It leaves the last column free, since some terminals wrap as soon as it is written; the bar
// shrinks, then goes, then the line is cut, as the terminal narrows.
std::string barLine(const std::string& label, double fraction, const std::string& done, const std::string& rate,
                    unsigned columns);

class Progress {
public:
    Progress(std::string label, uint64_t totalBytes, bool terminal);

    void update(uint64_t bytesDone);
    // Draws the final state and answers the seconds since construction.
    double finish(uint64_t bytesDone);

private:
    void draw(uint64_t bytesDone);
    double elapsed() const;

    std::string label_;
    uint64_t total_;
    bool terminal_;
    unsigned quartersShown_ = 0;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace quorvane::tools
