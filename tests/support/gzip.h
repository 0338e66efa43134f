// Making gzip data without zlib's functions for files.
#pragma once

#include <zlib.h>

#include <string>
#include <string_view>

namespace kvtest {

// How a member is packed: what deflateInit2 takes.
struct Packing {
  int level = 6;
  int windowBits = 15;
  int memLevel = 8;
  int strategy = Z_DEFAULT_STRATEGY;
};

// `content` as one gzip member, with zlib's own header or the one that is given.
inline std::string gzipMember(std::string_view content, const Packing& packing = {},
                              gz_header* header = nullptr) {
  constexpr int GZIP = 16;  // added to the window bits
  z_stream stream = {};
  if (deflateInit2(&stream, packing.level, Z_DEFLATED, packing.windowBits + GZIP, packing.memLevel,
                   packing.strategy) != Z_OK)
    return "";
  if (header != nullptr) deflateSetHeader(&stream, header);
  std::string member(deflateBound(&stream, content.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = reinterpret_cast<Bytef*>(member.data());
  stream.avail_out = static_cast<uInt>(member.size());
  const int status = deflate(&stream, Z_FINISH);
  member.resize(status == Z_STREAM_END ? stream.total_out : 0);
  deflateEnd(&stream);
  return member;
}

}  // namespace kvtest
