// A host whose texts are kept in another form than UTF-8: each is converted into a new object when its
// UTF-8 bytes are fetched, and the module is to release that object. Needs a program that is linked
// with --wrap=KciFetchUtf8Bytes_, --wrap=KciReleaseOops and support/converting_host.cc.
#pragma once

#include <kvfile/platform/oop.h>

#include <vector>

namespace kvtest {

// The host of this thread converts while one of these lives.
class ConvertingHost {
 public:
  ConvertingHost();
  ~ConvertingHost();
  ConvertingHost(const ConvertingHost&) = delete;
  ConvertingHost& operator=(const ConvertingHost&) = delete;

  // The objects that were made, in order, and those that were released; both since the start.
  static const std::vector<OopType>& converted();
  static const std::vector<OopType>& released();
};

}  // namespace kvtest
