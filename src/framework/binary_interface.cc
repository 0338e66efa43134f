// What the module takes for granted of the machine, and the layouts that it shares with a host. A
// product that was compiled with other ones could link and would then read the wrong bytes.
#include <kvfile/platform/host.h>
#include <kvfile/platform/kcicmn.h>
#include <kvfile/platform/version.h>

#include <sys/types.h>
#include <zlib.h>

#include <cstddef>
#include <type_traits>

namespace kvf {

static_assert(sizeof(void*) == 8 && sizeof(long) == 8, "the module needs a machine of 64 bits");
static_assert(sizeof(int) == 4);
static_assert(sizeof(off_t) == 8);
static_assert(sizeof(z_off_t) == 8);
static_assert(sizeof(intptr_t) == 8 && sizeof(size_t) == 8 && sizeof(ssize_t) == 8);
static_assert(sizeof(HostFileKindEType) == 4 && sizeof(VerParamEType) == 4);
static_assert(sizeof(VerResultEType) == 4 && sizeof(SysErrorCategEType) == 4);

static_assert(sizeof(KciErrSType) == 2168 && std::is_standard_layout_v<KciErrSType>);
static_assert(offsetof(KciErrSType, category) == 0 && offsetof(KciErrSType, context) == 8);
static_assert(offsetof(KciErrSType, exceptionObj) == 16 && offsetof(KciErrSType, args) == 24);
static_assert(offsetof(KciErrSType, number) == 104 && offsetof(KciErrSType, argCount) == 108);
static_assert(offsetof(KciErrSType, fatal) == 112 && offsetof(KciErrSType, message) == 113);
static_assert(offsetof(KciErrSType, reason) == 1138);

static_assert(sizeof(KciDateTimeSType) == 24 && std::is_standard_layout_v<KciDateTimeSType>);
static_assert(offsetof(KciDateTimeSType, year) == 0 && offsetof(KciDateTimeSType, dayOfYear) == 4);
static_assert(offsetof(KciDateTimeSType, milliseconds) == 8);
static_assert(offsetof(KciDateTimeSType, timeZone) == 16);

static_assert(sizeof(KciObjInfoSType) == 24 && std::is_standard_layout_v<KciObjInfoSType>);
static_assert(offsetof(KciObjInfoSType, size) == 0 && offsetof(KciObjInfoSType, format) == 8);
static_assert(offsetof(KciObjInfoSType, objClass) == 16);

static_assert(std::is_standard_layout_v<KciErrJumpSType>);
static_assert(offsetof(KciErrJumpSType, buf) == 0);
static_assert(offsetof(KciErrJumpSType, link) == sizeof(jmp_buf));

static_assert(sizeof(HostErrSType) == 4 && sizeof(HostFnameStrType) == 4097);
static_assert(sizeof(ErrMsgStrType) == 2048);

static_assert(sizeof(HostDirClientDataType) == 48);
static_assert(std::is_standard_layout_v<HostDirClientDataType>);
static_assert(offsetof(HostDirClientDataType, arrayOop) == 0);
static_assert(offsetof(HostDirClientDataType, arrH) == 8);
static_assert(offsetof(HostDirClientDataType, omPtr) == 16);
static_assert(offsetof(HostDirClientDataType, fullPath) == 24);
static_assert(offsetof(HostDirClientDataType, allowNfs) == 28);
static_assert(offsetof(HostDirClientDataType, utfResult) == 32);
static_assert(offsetof(HostDirClientDataType, errNum) == 36);
static_assert(offsetof(HostDirClientDataType, clientData) == 40);

static_assert(sizeof(SysErrorSType) == 1048 && std::is_standard_layout_v<SysErrorSType>);
static_assert(offsetof(SysErrorSType, errFlags) == 0 && offsetof(SysErrorSType, errCode) == 8);
static_assert(offsetof(SysErrorSType, eaiError) == 12 && offsetof(SysErrorSType, categ) == 16);
static_assert(offsetof(SysErrorSType, errMsgFinished) == 20);
static_assert(offsetof(SysErrorSType, errMsg) == 24);

static_assert(sizeof(VerParamResultSType) == 308);
static_assert(std::is_standard_layout_v<VerParamResultSType>);
static_assert(offsetof(VerParamResultSType, kind) == 0);
static_assert(offsetof(VerParamResultSType, intVal) == 4);
static_assert(offsetof(VerParamResultSType, stringVal) == 8);

}  // namespace kvf
