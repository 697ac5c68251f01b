// Numbers of system calls that some architectures do not have, or that are newer than the C
// library's headers. Where there is no such call, its number is kNoCall.
#ifndef TARN_SERVE_CALL_NUMBERS_H
#define TARN_SERVE_CALL_NUMBERS_H

#include <sys/syscall.h>

namespace tarn::server {

inline constexpr int kNoCall = -1;

// These are the same everywhere.
inline constexpr int kFchmodat2 = 452;
inline constexpr int kStatmount = 457;
inline constexpr int kListmount = 458;
inline constexpr int kNewestCall = 462;  // that a filter was written for

}  // namespace tarn::server

// These are the same everywhere, too. Some C libraries are older.
#ifndef SYS_process_mrelease
#define SYS_process_mrelease 448
#endif
#ifndef SYS_quotactl_fd
#define SYS_quotactl_fd 443
#endif

// Only some architectures have these.
#ifndef SYS_chmod
#define SYS_chmod tarn::server::kNoCall
#endif
#ifndef SYS_chown
#define SYS_chown tarn::server::kNoCall
#endif
#ifndef SYS_chown32
#define SYS_chown32 tarn::server::kNoCall
#endif
#ifndef SYS_clock_settime64
#define SYS_clock_settime64 tarn::server::kNoCall
#endif
#ifndef SYS_fchown32
#define SYS_fchown32 tarn::server::kNoCall
#endif
#ifndef SYS_fcntl64
#define SYS_fcntl64 tarn::server::kNoCall
#endif
#ifndef SYS_futimesat
#define SYS_futimesat tarn::server::kNoCall
#endif
#ifndef SYS_ioperm
#define SYS_ioperm tarn::server::kNoCall
#endif
#ifndef SYS_iopl
#define SYS_iopl tarn::server::kNoCall
#endif
#ifndef SYS_ipc
#define SYS_ipc tarn::server::kNoCall
#endif
#ifndef SYS_kexec_file_load
#define SYS_kexec_file_load tarn::server::kNoCall
#endif
#ifndef SYS_lchown
#define SYS_lchown tarn::server::kNoCall
#endif
#ifndef SYS_lchown32
#define SYS_lchown32 tarn::server::kNoCall
#endif
#ifndef SYS_lookup_dcookie
#define SYS_lookup_dcookie tarn::server::kNoCall
#endif
#ifndef SYS_modify_ldt
#define SYS_modify_ldt tarn::server::kNoCall
#endif
#ifndef SYS_msgget
#define SYS_msgget tarn::server::kNoCall
#define SYS_msgctl tarn::server::kNoCall
#define SYS_msgrcv tarn::server::kNoCall
#define SYS_msgsnd tarn::server::kNoCall
#endif
#ifndef SYS_open
#define SYS_open tarn::server::kNoCall
#endif
#ifndef SYS_semget
#define SYS_semget tarn::server::kNoCall
#define SYS_semctl tarn::server::kNoCall
#endif
#ifndef SYS_semop
#define SYS_semop tarn::server::kNoCall
#endif
#ifndef SYS_semtimedop
#define SYS_semtimedop tarn::server::kNoCall
#endif
#ifndef SYS_semtimedop_time64
#define SYS_semtimedop_time64 tarn::server::kNoCall
#endif
#ifndef SYS_settimeofday
#define SYS_settimeofday tarn::server::kNoCall
#endif
#ifndef SYS_shmget
#define SYS_shmget tarn::server::kNoCall
#define SYS_shmat tarn::server::kNoCall
#define SYS_shmctl tarn::server::kNoCall
#endif
#ifndef SYS_socketcall
#define SYS_socketcall tarn::server::kNoCall
#endif
#ifndef SYS_stime
#define SYS_stime tarn::server::kNoCall
#endif
#ifndef SYS_truncate64
#define SYS_truncate64 tarn::server::kNoCall
#endif
#ifndef SYS_umount
#define SYS_umount tarn::server::kNoCall
#endif
#ifndef SYS_uselib
#define SYS_uselib tarn::server::kNoCall
#endif
#ifndef SYS_utime
#define SYS_utime tarn::server::kNoCall
#endif
#ifndef SYS_utimensat_time64
#define SYS_utimensat_time64 tarn::server::kNoCall
#endif
#ifndef SYS_utimes
#define SYS_utimes tarn::server::kNoCall
#endif
#ifndef SYS_vm86
#define SYS_vm86 tarn::server::kNoCall
#endif
#ifndef SYS_vm86old
#define SYS_vm86old tarn::server::kNoCall
#endif

#endif
