// Tags that tell the product's allocator which place allocates.
#pragma once

namespace kvf {

enum KvfAllocationSiteEType : int { KVF_SITE_FILE_RECORD = 1, KVF_SITE_ERROR_TEXT = 2 };

}  // namespace kvf
