// The CLIPBOARD selection, plain UTF-8 text. A thread of its own owns a hidden window and answers
// other applications' paste requests, so the text stays available while the main queue is busy
// or blocked. Large texts travel in pieces (INCR) both ways.
#pragma once

#include <memory>

#include "platform/clipboard.h"

namespace mirlo::linuxdesk {

class XClipboard final : public Clipboard {
 public:
  // `answerLimit`: how long a read waits for the owner of the selection to hand over its text, all
  // of it when it comes in pieces.
  explicit XClipboard(double answerLimit);  // throws NoDisplayError
  ~XClipboard() override;
  XClipboard(const XClipboard&) = delete;
  XClipboard& operator=(const XClipboard&) = delete;

  std::optional<std::string> readText() override;
  void clear() override;
  void putText(const std::string& text) override;

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace mirlo::linuxdesk
