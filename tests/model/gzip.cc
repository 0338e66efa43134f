#include "model/gzip.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace model {

// ---- reading ----

GzipReader::~GzipReader() {
  if (hasStream_) inflateEnd(&stream_);
}

bool GzipReader::failWith(int code, std::string_view message) {
  fail(code, message);
  output_.clear();
  passed_ = 0;
  return false;
}

void GzipReader::pass(int64 count) {
  passed_ = static_cast<size_t>(static_cast<int64>(passed_) + count);
  position_ += count;
}

// Appends up to `count` bytes of the file.
bool GzipReader::load(int64 count, std::string* bytes) {
  std::string more;
  const int64 got = host_->read(descriptor, std::min(count, ONE_READ), &more);
  if (got < 0)
    return failWith(GZIP_ERRNO, host_->lastErrno == EISDIR ? "Is a directory" : "Invalid argument");
  if (got < count) sawEnd_ = true;
  *bytes += more;
  return true;
}

bool GzipReader::loadInput() {
  if (!usable()) return false;
  return sawEnd_ || load(INPUT - static_cast<int64>(input_.size()), &input_);
}

// Tells a member from plain data; plain data behind a member is dropped.
bool GzipReader::look() {
  if (input_.size() < 2 && !loadInput()) return false;
  if (input_.empty()) return true;
  if (input_.starts_with("\x1F\x8B")) {
    if (!hasStream_) inflateInit2(&stream_, 15 + 16);
    hasStream_ = true;
    inflateReset(&stream_);
    state_ = State::Packed;
    direct_ = false;
  } else if (!direct_) {
    input_.clear();
    sawEnd_ = true;
  } else {
    output_.swap(input_);
    passed_ = 0;
    input_.clear();
    state_ = State::Copied;
  }
  return true;
}

bool GzipReader::copy(int64 atMost) {
  output_.clear();
  passed_ = 0;
  return load(atMost, &output_);
}

bool GzipReader::unpack(int64 atMost) {
  output_.assign(static_cast<size_t>(std::min(atMost, ONE_READ >> 8)), '\0');
  passed_ = 0;
  stream_.next_out = reinterpret_cast<Bytef*>(output_.data());
  stream_.avail_out = static_cast<uInt>(output_.size());
  int status = Z_OK;
  while (stream_.avail_out > 0 && status != Z_STREAM_END) {
    if (input_.empty() && !loadInput()) return false;
    if (input_.empty()) {
      fail(GZIP_BUFFER_ERROR, "unexpected end of file");
      break;
    }
    stream_.next_in = reinterpret_cast<Bytef*>(input_.data());
    stream_.avail_in = static_cast<uInt>(input_.size());
    status = inflate(&stream_, Z_NO_FLUSH);
    input_.erase(0, input_.size() - stream_.avail_in);
    if (status == Z_DATA_ERROR)
      return failWith(GZIP_DATA_ERROR,
                      stream_.msg != nullptr ? stream_.msg : "compressed data error");
  }
  output_.resize(output_.size() - stream_.avail_out);
  if (status == Z_STREAM_END) state_ = State::Unknown;
  return true;
}

bool GzipReader::fetch() {
  do {
    if (state_ == State::Unknown) {
      if (!look()) return false;
      if (state_ == State::Unknown) return true;
    } else if (state_ == State::Copied) {
      return copy(CHUNK);
    } else if (!unpack(CHUNK)) {
      return false;
    }
  } while (ready() == 0 && !isUsedUp());
  return true;
}

bool GzipReader::makeReady(int64 wanted) {
  if (ready() > 0 || isUsedUp()) return true;
  if (state_ == State::Unknown || wanted < CHUNK) return fetch();
  return state_ == State::Copied ? copy(wanted) : unpack(wanted);
}

bool GzipReader::skipGap() {
  int64 left = std::exchange(gap_, 0);
  while (left > 0) {
    if (!makeReady(1)) return false;
    if (ready() == 0 && isUsedUp()) break;
    const int64 part = std::min(left, ready());
    pass(part);
    left -= part;
  }
  return true;
}

int64 GzipReader::read(int64 count, std::string* bytes) {
  bytes->clear();
  if (!usable() || !skipGap()) return -1;
  int64 left = count;
  while (left > 0) {
    if (!makeReady(left)) return -1;
    if (ready() == 0 && isUsedUp()) break;
    const int64 part = std::min(left, ready());
    bytes->append(output_, passed_, static_cast<size_t>(part));
    pass(part);
    left -= part;
  }
  return count - left;
}

// A byte that is ready is taken at once, even where a seek before it waits to be carried out.
int GzipReader::getByte() {
  std::string one;
  if (ready() > 0) {
    one = output_[passed_];
    pass(1);
  } else if (read(1, &one) != 1) {
    return -1;
  }
  return static_cast<unsigned char>(one[0]);
}

void GzipReader::ungetByte(int byte) {
  if (state_ == State::Unknown && ready() == 0) look();
  if (!skipGap()) return;
  output_.erase(0, passed_);
  passed_ = 0;
  output_.insert(output_.begin(), static_cast<char>(byte));
  --position_;
}

void GzipReader::rewind() {
  host_->seek(descriptor, 0, SEEK_SET);
  position_ = 0;
  input_.clear();
  output_.clear();
  passed_ = 0;
  state_ = State::Unknown;
  clearError();
}

int64 GzipReader::seek(int64 offset, int whence) {
  if (!usable() || whence != SEEK_SET) return -1;
  gap_ = 0;
  if (state_ == State::Copied) {
    host_->seek(descriptor, offset, SEEK_SET);
    clearError();
    output_.clear();
    passed_ = 0;
    return position_ = offset;
  }
  if (offset < position_) rewind();
  pass(std::min(ready(), offset - position_));
  gap_ = offset - position_;
  return offset;
}

void GzipReader::clearError() {
  error_ = GZIP_OK;
  message_.clear();
  sawEnd_ = false;
}

bool GzipReader::isDirect() {
  if (state_ == State::Unknown && ready() == 0) look();
  return direct_;
}

// ---- writing ----

void GzipWriter::append(std::string_view bytes) {
  member_ += bytes;
  memberBegun_ = true;
  position_ += static_cast<int64>(bytes.size());
  host_->at(descriptor).file->unsettled = true;
}

void GzipWriter::fillGap() {
  if (gap_ > 0) append(std::string(static_cast<size_t>(gap_), '\0'));
  gap_ = 0;
}

int64 GzipWriter::write(std::string_view bytes) {
  if (bytes.empty()) return 0;
  fillGap();
  append(bytes);
  return static_cast<int64>(bytes.size());
}

// A refused seek forgets the gap of the seek before it.
int64 GzipWriter::seek(int64 offset, int whence) {
  if (whence != SEEK_SET) return -1;
  gap_ = 0;
  if (offset < position_) return -1;
  gap_ = offset - position_;
  return offset;
}

int GzipWriter::flush() {
  fillGap();
  HostFile* file = host_->at(descriptor).file;
  if (memberBegun_) file->members.push_back(member_);
  member_.clear();
  memberBegun_ = false;
  file->unsettled = false;
  return GZIP_OK;
}

}  // namespace model
