#include "source_text.h"

#include <algorithm>

namespace shell {

bool SourceText::extend(size_t index) {
  while (source_ != nullptr && index >= window_.size()) {
    if (!source_->readMore(&buffer_)) source_ = nullptr;
    window_ = buffer_;
  }
  return index < window_.size();
}

void SourceText::drop(size_t count) {
  std::string_view dropped = window_.substr(0, count);
  size_t lineEnd = dropped.rfind('\n');
  position_.line += static_cast<int>(std::count(dropped.begin(), dropped.end(), '\n'));
  position_.column = lineEnd == std::string_view::npos ? position_.column + static_cast<int>(count)
                                                       : static_cast<int>(count - lineEnd);
  buffer_.erase(0, count);
  base_ += count;
  window_ = buffer_;
}

}  // namespace shell
