#include "model/host.h"

#include <unistd.h>

#include <algorithm>

namespace model {

namespace {

constexpr int64 LAST_POSITION = std::numeric_limits<int64>::max();

const char* errnoName(int errNum) {
  switch (errNum) {
    case ENOENT:
      return "ENOENT, No such file or directory";
    case EIO:
      return "EIO, Input/output error";
    case EBADF:
      return "EBADF, Bad file descriptor";
    case EFAULT:
      return "EFAULT, Bad address";
    case EISDIR:
      return "EISDIR, Is a directory";
    case EINVAL:
      return "EINVAL, Invalid argument";
    case EFBIG:
      return "EFBIG, File too large";
    case ENAMETOOLONG:
      return "ENAMETOOLONG, File name too long";
    default:
      return "?";
  }
}

}  // namespace

std::string errnoText(int errNum) {
  return "errno=" + std::to_string(errNum) + "," + errnoName(errNum);
}

void Host::redirect(int descriptor, HostFile* file, bool reads, bool writes, bool appends) {
  taken_[static_cast<size_t>(descriptor)] = true;
  at(descriptor) = {file, 0, reads, writes, appends};
  ++file->descriptors;
}

HostFile* Host::find(std::string_view name) {
  for (size_t i = 0; i < fileCount_; ++i)
    if (files_[i].name == name) return &files_[i];
  return nullptr;
}

HostFile& Host::add(std::string_view name) {
  HostFile& file = files_[fileCount_++];
  file.name = name;
  return file;
}

std::vector<HostFile*> Host::files() {
  std::vector<HostFile*> all;
  for (size_t i = 0; i < fileCount_; ++i) all.push_back(&files_[i]);
  return all;
}

int Host::lowestFree() const {
  return static_cast<int>(std::find(taken_.begin(), taken_.end(), false) - taken_.begin());
}

int64 Host::fail(int errNum) {
  lastErrno = errNum;
  return -1;
}

int Host::open(const std::string& path, Opening how, bool refuseDirectories, int* errNum) {
  HostFile* file = find(path);
  *errNum = 0;
  if (file == nullptr) {
    *errNum = path.size() > 255 ? ENAMETOOLONG : ENOENT;
  } else if (file->isDirectory) {
    if (how.writes || refuseDirectories) *errNum = EISDIR;
  } else if (!file->exists && !how.creates) {
    *errNum = ENOENT;
  }
  if (*errNum != 0) return -1;
  file->exists = true;
  if (how.truncates) file->bytes.clear();
  ++file->descriptors;
  const int descriptor = lowestFree();
  taken_[static_cast<size_t>(descriptor)] = true;
  at(descriptor) = {file, 0, how.reads, how.writes, how.appends};
  if (how.toEnd) at(descriptor).position = static_cast<int64>(file->bytes.size());
  return descriptor;
}

void Host::close(int descriptor) {
  --at(descriptor).file->descriptors;
  at(descriptor) = Descriptor();
  taken_[static_cast<size_t>(descriptor)] = false;
}

void Host::lose(int descriptor) {
  --at(descriptor).file->descriptors;
  lost_.push_back(descriptor);
}

int64 Host::read(int descriptor, int64 count, std::string* bytes) {
  bytes->clear();
  Descriptor& from = at(descriptor);
  if (!from.reads) return fail(EBADF);
  if (count >= ADDRESSES) return fail(EFAULT);
  if (from.file->isDirectory) return fail(EISDIR);
  if (count > LAST_POSITION - from.position) return fail(EINVAL);
  const std::string& content = from.file->bytes;
  if (from.position >= static_cast<int64>(content.size())) return 0;
  bytes->assign(content, static_cast<size_t>(from.position), static_cast<size_t>(count));
  from.position += static_cast<int64>(bytes->size());
  return static_cast<int64>(bytes->size());
}

int64 Host::seek(int descriptor, int64 offset, int whence) {
  Descriptor& moved = at(descriptor);
  int64 base = 0;
  if (whence == SEEK_CUR) base = moved.position;
  if (whence == SEEK_END) base = static_cast<int64>(moved.file->bytes.size());
  const int64 position = wrappedSum(base, offset);
  if (position < 0) return fail(EINVAL);
  return moved.position = position;
}

int64 Host::write(int descriptor, std::string_view bytes) {
  Descriptor& to = at(descriptor);
  const auto count = static_cast<int64>(bytes.size());
  if (!to.writes) return fail(EBADF);
  if (count > LAST_POSITION - to.position) return fail(EINVAL);
  // A write that fails at once leaves the position, even one that would have moved to the end.
  std::string& content = to.file->bytes;
  const int64 start = to.appends ? static_cast<int64>(content.size()) : to.position;
  const int64 fits = std::clamp<int64>(sizeLimit_ - start, 0, count);
  if (fits > 0) {
    const int64 end = start + fits;
    if (end > static_cast<int64>(content.size())) content.resize(static_cast<size_t>(end));
    content.replace(static_cast<size_t>(start), static_cast<size_t>(fits),
                    bytes.substr(0, static_cast<size_t>(fits)));
    to.position = end;
  }
  return fits == count ? count : fail(EFBIG);
}

int Host::getLine(int64 limit, std::string* line) {
  line->clear();
  while (static_cast<int64>(line->size()) < limit && !line->ends_with('\n')) {
    if (inputAhead_.empty()) {
      const int64 count = read(STDIN_FILENO, STREAM_BUFFER, &inputAhead_);
      if (count <= 0 && !line->empty()) return 0;
      if (count <= 0) return count == 0 ? -1 : 1;
    }
    const size_t newline = std::min(inputAhead_.find('\n'), inputAhead_.size() - 1);
    const size_t part = std::min(newline + 1, static_cast<size_t>(limit) - line->size());
    line->append(inputAhead_, 0, part);
    inputAhead_.erase(0, part);
  }
  return 0;
}

bool Host::flushInput() {
  if (inputAhead_.empty()) return true;
  if (seek(STDIN_FILENO, -static_cast<int64>(inputAhead_.size()), SEEK_CUR) < 0) return false;
  inputAhead_.clear();
  return true;
}

void Host::print(std::string_view text) {
  if (!text.empty()) write(STDOUT_FILENO, text);
}

}  // namespace model
