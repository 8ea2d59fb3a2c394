#include "ProgressBar.h"

#include <cstdio>

#if defined(_WIN32)
#include <io.h>
#define OMBRIX_ISATTY _isatty
#define OMBRIX_STDERR_FD 2
#else
#include <unistd.h>
#define OMBRIX_ISATTY isatty
#define OMBRIX_STDERR_FD STDERR_FILENO
#endif

namespace ombrix_tool {

bool ProgressBar::StandardErrorIsTerminal() { return OMBRIX_ISATTY(OMBRIX_STDERR_FD) != 0; }

ProgressBar::ProgressBar(int total, const std::string& label, bool quiet)
    : total_(total), label_(label), enabled_(!quiet && total > 1 && StandardErrorIsTerminal()) {
  if (enabled_) Draw();
}

ProgressBar::~ProgressBar() {
  if (enabled_) std::fputs("\n", stderr);
}

void ProgressBar::Advance() {
  if (!enabled_) return;
  std::lock_guard<std::mutex> lock(mutex_);
  if (done_ < total_) ++done_;
  Draw();
}

void ProgressBar::Draw() {
  constexpr int kWidth = 30;
  const int filled = total_ > 0 ? done_ * kWidth / total_ : kWidth;
  std::string bar(static_cast<std::size_t>(filled), '#');
  bar.append(static_cast<std::size_t>(kWidth - filled), '.');
  std::fprintf(stderr, "\r%s [%s] %d/%d", label_.c_str(), bar.c_str(), done_, total_);
  std::fflush(stderr);
}

}  // namespace ombrix_tool
