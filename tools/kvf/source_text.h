// The text of a program, held as far as it is still needed.
#pragma once

#include "position.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace shell {

// Where a text comes from, piece by piece.
class TextSource {
 public:
  TextSource() = default;
  virtual ~TextSource() = default;
  TextSource(const TextSource&) = delete;
  TextSource& operator=(const TextSource&) = delete;

  // Appends the next piece, of at least one byte; false at the end. May block. Throws
  // std::runtime_error where the text cannot be read.
  virtual bool readMore(std::string* text) = 0;
};

// A window on a text that moves from its start to its end. Offsets count from the start of the text.
class SourceText {
 public:
  // The whole text, which must outlive this.
  explicit SourceText(std::string_view whole) : window_(whole) {}

  // A text that is read as it is asked for; `source` must outlive this.
  explicit SourceText(TextSource& source) : source_(&source) {}

  // The byte at `offset`, which must not have been forgotten; NUL behind the end. Reads on where it
  // has to, and then may block.
  char at(size_t offset) {
    size_t index = offset - base_;
    if (index < window_.size() || extend(index)) return window_[index];
    return '\0';
  }
  bool isEnd(size_t offset) {
    size_t index = offset - base_;
    return index >= window_.size() && !extend(index);
  }

  // What was read of the text from `offset` on.
  std::string_view from(size_t offset) const { return window_.substr(offset - base_); }

  // Lets go of the text before `offset`, but for what an error's excerpt may show of it.
  void forgetBefore(size_t offset) {
    if (source_ != nullptr && offset - base_ >= FORGOTTEN_AT_ONCE) drop(offset - base_ - KEPT);
  }

  // The text that is held, and the place of its first byte.
  std::string_view held() const { return window_; }
  Position heldFrom() const { return position_; }

 private:
  static constexpr size_t FORGOTTEN_AT_ONCE = 65536;
  static constexpr size_t KEPT = 256;

  bool extend(size_t index);
  void drop(size_t count);

  TextSource* source_ = nullptr;  // null once it has ended
  std::string buffer_;
  std::string_view window_;
  size_t base_ = 0;  // offset of the window
  Position position_;
};

}  // namespace shell
