#include "every_fault/compressed.h"

#include "every_fault/world.h"
#include "support/gzip.h"

#include <zlib.h>

namespace every_fault {

namespace {

constexpr int GZIP = 31;  // window bits that ask for a gzip header

// zlib's allocations in here are not the module's.
class Quiet {
 public:
  Quiet() : former_(w.quiet) { w.quiet = true; }
  ~Quiet() { w.quiet = former_; }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  bool former_;
};

Bytef* bytesOf(const std::string& text) {
  return reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
}

}  // namespace

std::string compress(const std::string& text) {
  const Quiet quiet;
  return kvtest::gzipMember(text, {.level = Z_BEST_COMPRESSION});
}

bool expand(const std::string& bytes, std::string* text) {
  const Quiet quiet;
  z_stream stream = {};
  inflateInit2(&stream, GZIP);
  stream.next_in = bytesOf(bytes);
  stream.avail_in = static_cast<uInt>(bytes.size());
  int status = Z_STREAM_END;
  char part[4096];
  while (stream.avail_in > 0 || status == Z_OK) {
    if (status == Z_STREAM_END) inflateReset(&stream);
    stream.next_out = reinterpret_cast<Bytef*>(part);
    stream.avail_out = sizeof part;
    status = inflate(&stream, Z_NO_FLUSH);
    text->append(part, sizeof part - stream.avail_out);
    if (status != Z_OK && status != Z_STREAM_END) break;
  }
  inflateEnd(&stream);
  return status == Z_STREAM_END;
}

}  // namespace every_fault
