// Files of known content, plain and gzip, and what they hold afterwards.
#pragma once

#include <gtest/gtest.h>

#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

namespace kvtest {

inline void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  EXPECT_TRUE(out) << path;
}

// Empty where there is no such file.
inline std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

inline void writeGzip(const std::string& path, std::string_view content) {
  const gzFile zf = gzopen(path.c_str(), "wb");
  ASSERT_NE(zf, nullptr) << path;
  if (!content.empty()) {
    ASSERT_EQ(gzwrite(zf, content.data(), static_cast<unsigned>(content.size())),
              static_cast<int>(content.size()));
  }
  ASSERT_EQ(gzclose(zf), Z_OK);
}

// What the file holds when zlib reads it.
inline std::string readGzip(const std::string& path) {
  const gzFile zf = gzopen(path.c_str(), "rb");
  if (zf == nullptr) return "cannot open";
  std::string text;
  char piece[4096];
  for (int n; (n = gzread(zf, piece, sizeof piece)) > 0;)
    text.append(piece, static_cast<size_t>(n));
  gzclose(zf);
  return text;
}

inline int openDescriptorCount() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

}  // namespace kvtest
