// Tags that tell the product's allocator which place allocates.
#pragma once

enum KvfAllocationSiteEType : int { KVF_SITE_FILE_RECORD = 1, KVF_SITE_ERROR_TEXT = 2 };
