#include "tools/k8/progress.h"

#include <unistd.h>

#include <cstdio>

constexpr int kBarWidth = 30;

Progress::Progress(std::string task, int total)
    : task_(std::move(task)), total_(total), isTerminal_(isatty(STDERR_FILENO)) {
    show();
}

Progress::~Progress() {
    if (isTerminal_) std::fprintf(stderr, "\r\033[K");
}

void Progress::advance() {
    ++done_;
    show();
}

void Progress::show() const {
    if (!isTerminal_ || total_ == 0) return;
    const int filled = done_ * kBarWidth / total_;
    const std::string bar = std::string(size_t(filled), '#') + std::string(size_t(kBarWidth - filled), '.');
    std::fprintf(stderr, "\r%s [%s] %d/%d", task_.c_str(), bar.c_str(), done_, total_);
    std::fflush(stderr);
}
