#include "FrameReader.h"

#include <algorithm>
#include <deque>
#include <future>
#include <utility>

#include "InputFiles.h"

namespace ombrix_tool {

namespace {

// One file in flight. Its byte buffer keeps its capacity from file to file: a fresh 8 MiB
// buffer per frame costs page faults and zero-filling comparable to the decoding itself. The
// decoded image is new for every file, so a frame the consumer keeps is never overwritten.
struct Slot {
  std::vector<char> bytes;
  std::string sha256;
};

}  // namespace

FrameReader::FrameReader(const std::vector<std::string>& files, std::size_t ahead, bool hash)
    : files_(files), ahead_(std::max<std::size_t>(1, ahead)), hash_(hash) {}

void FrameReader::ForEach(
    const std::function<void(std::size_t, const cv::Mat&, const std::string&)>& consume) const {
  // ahead_ slots decode while the frame of one more is being consumed.
  std::vector<Slot> slots(ahead_ + 1);
  std::vector<Slot*> idle;
  for (Slot& slot : slots) idle.push_back(&slot);
  std::deque<std::pair<std::future<cv::Mat>, Slot*>> pending;
  std::size_t next = 0;
  auto launch = [&]() {
    Slot* slot = idle.back();
    idle.pop_back();
    const std::string* path = &files_[next++];
    const bool hash = hash_;
    pending.emplace_back(std::async(std::launch::async,
                                    [slot, path, hash]() {
                                      return ReadImageBuffered(*path, slot->bytes,
                                                               hash ? &slot->sha256 : nullptr);
                                    }),
                         slot);
  };
  try {
    for (std::size_t index = 0; index < files_.size(); ++index) {
      while (next < files_.size() && !idle.empty()) launch();
      std::pair<std::future<cv::Mat>, Slot*> frame = std::move(pending.front());
      pending.pop_front();
      consume(index, frame.first.get(), frame.second->sha256);
      idle.push_back(frame.second);
    }
  } catch (...) {
    // The decoders still running finish before the exception leaves (their futures wait), while
    // their slots still exist.
    for (auto& frame : pending) frame.first.wait();
    throw;
  }
}

}  // namespace ombrix_tool
