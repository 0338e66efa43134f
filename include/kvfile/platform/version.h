/* Version parameters of the build and of the machine that it runs on. Nothing here jumps. */
#ifndef KVFILE_PLATFORM_VERSION_H
#define KVFILE_PLATFORM_VERSION_H

#include <kvfile/platform/oop.h>

KV_INT_ENUM(VerResultEType){VER_INT_KIND = 0, VER_STRING_KIND = 1};

KV_INT_ENUM(VerParamEType){
    VER_INFO_CPU_KIND = 0,         VER_INFO_CPU_ARCH = 1,
    VER_INFO_KV_BUILD_ARCH = 2,    VER_INFO_KV_BUILD_DATE = 3,
    VER_INFO_KV_IMAGE_KIND = 4,    VER_INFO_KV_RELEASE = 5,
    VER_INFO_KV_VERSION = 6,       VER_INFO_NODE_NAME = 7,
    VER_INFO_OS_NAME = 8,          VER_INFO_OS_RELEASE = 9,
    VER_INFO_OS_VERSION = 10,      VER_INFO_PROCESS_ID = 11,
    VER_INFO_PROCESSOR_COUNT = 12, VER_INFO_KV_BUILD_SERIAL_NUM = 13,
    VER_INFO_KV_BUILD_TYPE = 14,
};

typedef struct VerParamResultSType {
  VerResultEType kind;
  int32 intVal;        /* where kind is VER_INT_KIND */
  char stringVal[300]; /* NUL-terminated, where kind is VER_STRING_KIND */
} VerParamResultSType;

#ifdef __cplusplus
extern "C" {
#endif

/* Fills `*result` with the value of parameter `id`, in whichever kind the host has it. 0 for an id
 * that is not known, with `*result` as it was. */
BoolType VerGetVersionParam(VerParamEType id, VerParamResultSType* result);

#ifdef __cplusplus
}
#endif

#endif
