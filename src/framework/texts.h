// The texts by which failures are told, each in this one place. Products search logs for them, so
// that they stand as they are, misspellings included.
#pragma once

namespace kvf {

// ---- reading ----
inline constexpr char TEXT_READ_PAST_END[] = "attempt to read past end of file";

// ---- modes and positions ----
inline constexpr char TEXT_INCONSISTENT_MODE[] = "inconsistent mode A";
inline constexpr char TEXT_APPEND_SEEK[] = "Cannot seek on a file opened with append mode";

// ---- opening ----
inline constexpr char TEXT_OPEN_STD_FILE[] = "Can not open standard file";
inline constexpr char TEXT_INVALID_MODE[] = "errno=22,EINVAL, Invalid argument (programmer error)";
inline constexpr char TEXT_GZOPEN_UTF16[] = "gzopen not supported with Utf16 filename";

// ---- forms that are filled in ----
inline constexpr char TEXT_KCI_ERROR[] = "Kestrova KCI error %d, message: %s";
inline constexpr char TEXT_HOST_ERROR_PATH[] = "%s : %s";
inline constexpr char TEXT_HOST_ERROR_PATH_OBJECT[] = "%s : pathOop %lu";

// ---- locking ----
inline constexpr char TEXT_NOT_OPEN[] = "file is not open";
inline constexpr char TEXT_LOCK_STD_FILE[] = "locking is not supported on stdin, stdout, or stderr";
inline constexpr char TEXT_UNLOCK_STD_FILE[] =
    "unlocking is not supported on stdin, stdout, or stderr";
inline constexpr char TEXT_LOCK_KIND[] = "invalid lock kind";
inline constexpr char TEXT_OFFSET_CLASS[] = "The offset argument is not a SmallInteger";
inline constexpr char TEXT_OFFSET_RANGE[] = "offset must be greater than or equal to zero";
inline constexpr char TEXT_BYTES_CLASS[] = "The bytes argument is not a SmallInteger";
inline constexpr char TEXT_BYTES_RANGE[] = "bytes must be greater than or equal to zero";
inline constexpr char TEXT_MILLISECS_CLASS[] = "The millisecnds argument is not a SmallInteger";
inline constexpr char TEXT_MILLISECS_RANGE[] = "millisecnds must be greater than or equal to zero";
inline constexpr char TEXT_LSEEK_FAILED[] = "lseek(%d) failure: errno=%d";
inline constexpr char TEXT_INVALID_WHENCE[] = "invalid l_whence: %d";

// ---- paths ----
inline constexpr char TEXT_REMOVE_STD_FILE[] = "Can not remove standard file";
inline constexpr char TEXT_SIZE_STD_FILE[] = "Cannot get size of standard file";
inline constexpr char TEXT_TIME_STD_FILE[] = "Can not get time of standard file";
inline constexpr char TEXT_DIRECTORY_STD_FILE[] =
    "Directory operation not allowed on standard file";
inline constexpr char TEXT_MKDIR_MODE[] = "oMode out of range of int32 in KvfMkdir";

// ---- host services ----
inline constexpr char TEXT_VERSION_FAILED[] = "VerGetVersionParam failed";
inline constexpr char TEXT_OPTION_NAME[] = "Error fetching option name";
inline constexpr char TEXT_SIZE_CLASS[] = "The size argument is not a SmallInteger";
inline constexpr char TEXT_SIZE_ODD[] = "Buffer size must be an even number.";
inline constexpr char TEXT_SIZE_RANGE[] = "Buffer size is out of range";

}  // namespace kvf
