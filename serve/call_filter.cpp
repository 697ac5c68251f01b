#include "serve/call_filter.h"

#include <asm/ioctls.h>
#include <asm/sockios.h>
#include <fcntl.h>
#include <linux/audit.h>
#include <linux/fs.h>
#include <linux/netlink.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <iterator>

#include "serve/call_numbers.h"

namespace tarn::server {
namespace {

#if defined(__x86_64__) && !defined(__ILP32__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__i386__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_I386;
#elif defined(__s390x__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_S390X;
#elif defined(__aarch64__)
constexpr uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr uint32_t kArchitecture = 0;
#endif

// Where clone() has its flags.
#if defined(__s390x__)
constexpr unsigned kCloneFlags = 1;
#else
constexpr unsigned kCloneFlags = 0;
#endif

// The calls of x32 use the architecture of x86-64, and numbers from here on.
constexpr uint32_t kFirstOfX32 = 0x40000000;

constexpr bool exists(int call) { return call != kNoCall; }

constexpr uint32_t kAllow = SECCOMP_RET_ALLOW;
constexpr uint32_t refuse(int error) { return SECCOMP_RET_ERRNO | static_cast<uint32_t>(error); }

// Calls that socketcall() stands for. Its arguments are in memory, where no filter can see them.
constexpr uint32_t kCallOfSocket = 1;
constexpr uint32_t kCallOfSocketpair = 8;

// What no script may do: the kernel's own settings, other processes and what they share with this
// one, file systems, name spaces, and large interfaces of the kernel in which holes are found.
// inotify_add_watch() would report names in directories that the script cannot read.
constexpr int kDenied[] = {
    SYS_acct,
    SYS_add_key,
    SYS_bpf,
    SYS_chroot,
    SYS_clock_settime,
    SYS_clock_settime64,
    SYS_delete_module,
    SYS_fanotify_init,
    SYS_fanotify_mark,
    SYS_finit_module,
    SYS_fsconfig,
    SYS_fsmount,
    SYS_fsopen,
    SYS_fspick,
    SYS_init_module,
    SYS_inotify_add_watch,
    SYS_io_uring_enter,
    SYS_io_uring_register,
    SYS_io_uring_setup,
    SYS_ioperm,
    SYS_iopl,
    SYS_ioprio_set,
    SYS_ipc,
    SYS_kcmp,
    SYS_kexec_file_load,
    SYS_kexec_load,
    SYS_keyctl,
    SYS_lookup_dcookie,
    SYS_migrate_pages,
    SYS_modify_ldt,
    SYS_mount,
    SYS_mount_setattr,
    SYS_move_mount,
    SYS_move_pages,
    SYS_mq_open,
    SYS_mq_unlink,
    SYS_msgctl,
    SYS_msgget,
    SYS_msgrcv,
    SYS_msgsnd,
    SYS_name_to_handle_at,
    SYS_open_by_handle_at,
    SYS_open_tree,
    SYS_perf_event_open,
    SYS_pidfd_getfd,
    SYS_pivot_root,
    SYS_process_madvise,
    SYS_process_mrelease,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_ptrace,
    SYS_quotactl,
    SYS_quotactl_fd,
    SYS_reboot,
    SYS_request_key,
    SYS_semctl,
    SYS_semget,
    SYS_semop,
    SYS_semtimedop,
    SYS_semtimedop_time64,
    SYS_setdomainname,
    SYS_sethostname,
    SYS_setns,
    SYS_settimeofday,
    SYS_shmat,
    SYS_shmctl,
    SYS_shmget,
    SYS_stime,
    SYS_swapoff,
    SYS_swapon,
    SYS_syslog,
    SYS_umount,
    SYS_umount2,
    SYS_unshare,
    SYS_uselib,
    SYS_userfaultfd,
    SYS_vhangup,
    SYS_vm86,
    SYS_vm86old,
    kStatmount,
    kListmount,
};

// No file rule of the kernel covers these.
constexpr int kAttributes[] = {
    SYS_chmod,        SYS_chown,       SYS_chown32,
    SYS_fchmod,       SYS_fchmodat,    kFchmodat2,
    SYS_fchown,       SYS_fchown32,    SYS_fchownat,
    SYS_fremovexattr, SYS_fsetxattr,   SYS_futimesat,
    SYS_lchown,       SYS_lchown32,    SYS_lremovexattr,
    SYS_lsetxattr,    SYS_removexattr, SYS_setxattr,
    SYS_utime,        SYS_utimensat,   SYS_utimensat_time64,
    SYS_utimes,
};

constexpr int kPrograms[] = {SYS_execve, SYS_execveat};

constexpr int kTruncation[] = {SYS_truncate, SYS_truncate64};

struct Denied {
  int call;
  int error;
};

// The calls that are denied whatever their arguments are, sorted.
struct DeniedCalls {
  Denied calls[std::size(kDenied) + std::size(kAttributes) + 8];
  size_t count = 0;

  void add(int call, int error) {
    if (exists(call)) calls[count++] = {call, error};
  }
  template <size_t size>
  void add(const int (&more)[size], int error) {
    for (const int call : more) add(call, error);
  }
};

}  // namespace

bool CallFilter::isSupported() {
  const uint32_t action = SECCOMP_RET_KILL_PROCESS;
  return kArchitecture != 0 && syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
}

// ---- Instructions --------------------------------------------------------------------------------

void CallFilter::add(uint16_t code, uint32_t value, uint8_t if_true, uint8_t if_false) {
  code_[size_++] = {code, if_true, if_false, value};
}

// Another architecture has other numbers for the same calls.
void CallFilter::begin() {
  size_ = 0;
  add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch));
  unlessEqual(kArchitecture, SECCOMP_RET_KILL_PROCESS);
  add(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr));
  if (kArchitecture == AUDIT_ARCH_X86_64) {
    add(BPF_JMP | BPF_JGE | BPF_K, kFirstOfX32, 0, 1);
    add(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS);
  }
}

void CallFilter::when(int call) {
  rule_ = size_;
  add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call));
}

// The kernel uses the low half of these arguments: they are ints.
void CallFilter::load(unsigned argument) {
  const size_t low_half = std::endian::native == std::endian::big ? sizeof(uint32_t) : 0;
  add(BPF_LD | BPF_W | BPF_ABS,
      static_cast<uint32_t>(offsetof(seccomp_data, args) + argument * sizeof(uint64_t) + low_half));
}

void CallFilter::mask(uint32_t bits) { add(BPF_ALU | BPF_AND | BPF_K, bits); }

void CallFilter::ifEqual(uint32_t value, uint32_t action) {
  add(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1);
  add(BPF_RET | BPF_K, action);
}

void CallFilter::unlessEqual(uint32_t value, uint32_t action) {
  add(BPF_JMP | BPF_JEQ | BPF_K, value, 1, 0);
  add(BPF_RET | BPF_K, action);
}

void CallFilter::end(uint32_t action) {
  add(BPF_RET | BPF_K, action);
  code_[rule_].jf = static_cast<uint8_t>(size_ - rule_ - 1);
}

// ---- Rules ---------------------------------------------------------------------------------------

void CallFilter::addSockets(const CallRights &rights) {
  when(SYS_socket);
  load(0);
  if (rights.unix_sockets) ifEqual(AF_UNIX, kAllow);
  if (rights.network) {
    ifEqual(AF_INET, kAllow);
    ifEqual(AF_INET6, kAllow);
    // The C library asks for the addresses of this machine when it looks up a name.
    unlessEqual(AF_NETLINK, refuse(EACCES));
    load(2);
    ifEqual(NETLINK_ROUTE, kAllow);
  }
  end(refuse(EACCES));

  // Two connected streams reach nobody else. A datagram can be sent to any address.
  if (!rights.unix_sockets) {
    when(SYS_socketpair);
    load(1);
    mask(0xF);
    ifEqual(SOCK_STREAM, kAllow);
    end(refuse(EACCES));
  }

  // Which family it is cannot be seen here.
  if (exists(SYS_socketcall) && !(rights.network && rights.unix_sockets)) {
    when(SYS_socketcall);
    load(0);
    ifEqual(kCallOfSocket, refuse(EACCES));
    ifEqual(kCallOfSocketpair, refuse(EACCES));
    end(kAllow);
  }
}

// Other processes of the same user are out of reach.
void CallFilter::addProcesses() {
  constexpr uint32_t namespaces = CLONE_NEWCGROUP | CLONE_NEWIPC | CLONE_NEWNET | CLONE_NEWNS |
                                  CLONE_NEWPID | CLONE_NEWUSER | CLONE_NEWUTS;
  when(SYS_clone);
  load(kCloneFlags);
  // With CLONE_PARENT the new process would be a child of the service.
  mask(namespaces | CLONE_PARENT);
  ifEqual(0, kAllow);
  end(refuse(EPERM));

  // Its flags are in memory. The C library falls back to clone().
  when(SYS_clone3);
  end(refuse(ENOSYS));

  for (const int call : {SYS_prlimit64, SYS_sched_setaffinity, SYS_sched_setattr,
                         SYS_sched_setparam, SYS_sched_setscheduler}) {
    when(call);
    load(0);
    ifEqual(0, kAllow);
    end(refuse(EPERM));
  }

  when(SYS_setpriority);
  load(0);
  unlessEqual(PRIO_PROCESS, refuse(EPERM));
  load(1);
  ifEqual(0, kAllow);
  end(refuse(EPERM));
}

// A script that was started in a terminal must not type there. Flags of files are attributes.
void CallFilter::addDevices(const CallRights &rights) {
  when(SYS_ioctl);
  load(1);
  ifEqual(TIOCSTI, refuse(EPERM));
  ifEqual(TIOCLINUX, refuse(EPERM));
  if (!rights.attributes) {
    ifEqual(FS_IOC_SETFLAGS, refuse(EPERM));
    ifEqual(FS_IOC32_SETFLAGS, refuse(EPERM));
    ifEqual(FS_IOC_FSSETXATTR, refuse(EPERM));
  }
  end(kAllow);
}

// open() truncates a file that it opens for reading, too, or for neither reading nor writing.
void CallFilter::addTruncation() {
  for (const int call : {SYS_open, SYS_openat}) {
    if (!exists(call)) continue;
    const unsigned flags = call == SYS_openat ? 2 : 1;
    when(call);
    load(flags);
    mask(O_TRUNC);
    ifEqual(0, kAllow);
    load(flags);
    mask(O_ACCMODE);
    ifEqual(O_WRONLY, kAllow);
    ifEqual(O_RDWR, kAllow);
    end(refuse(EACCES));
  }
  // Its flags are in memory.
  when(SYS_openat2);
  end(refuse(ENOSYS));
}

// The kernel runs the filter for every number when it is installed, so numbers are looked up in
// groups.
void CallFilter::addDenied(const CallRights &rights) {
  DeniedCalls denied;
  denied.add(kDenied, EPERM);
  if (!rights.attributes) denied.add(kAttributes, EPERM);
  if (!rights.programs) denied.add(kPrograms, EACCES);
  if (!rights.truncates) denied.add(kTruncation, EACCES);
  std::sort(denied.calls, denied.calls + denied.count,
            [](const Denied &a, const Denied &b) { return a.call < b.call; });

  constexpr size_t in_group = 8;
  for (size_t first = 0; first < denied.count; first += in_group) {
    const size_t last = std::min(first + in_group, denied.count) - 1;
    const size_t length = 2 * (last - first + 1) + 1;
    add(BPF_JMP | BPF_JGT | BPF_K, static_cast<uint32_t>(denied.calls[last].call),
        static_cast<uint8_t>(length));
    for (size_t i = first; i <= last; ++i) {
      ifEqual(static_cast<uint32_t>(denied.calls[i].call), refuse(denied.calls[i].error));
    }
    add(BPF_RET | BPF_K, kAllow);
  }
  // What newer calls can do is not known.
  add(BPF_JMP | BPF_JGT | BPF_K, kNewestCall, 0, 1);
  add(BPF_RET | BPF_K, refuse(ENOSYS));
  add(BPF_RET | BPF_K, kAllow);
}

void CallFilter::build(const CallRights &rights) {
  begin();
  addSockets(rights);
  addProcesses();
  addDevices(rights);
  if (!rights.truncates) addTruncation();
  addDenied(rights);
}

void CallFilter::buildForSignals(pid_t self) {
  begin();
  for (const int call :
       {SYS_kill, SYS_rt_sigqueueinfo, SYS_rt_tgsigqueueinfo, SYS_tgkill, SYS_tkill}) {
    when(call);
    load(0);
    ifEqual(static_cast<uint32_t>(self), kAllow);
    end(refuse(EPERM));
  }
  when(SYS_pidfd_send_signal);
  end(refuse(EPERM));
  // A file can send signals to its owner when something happens to it.
  for (const int call : {SYS_fcntl, SYS_fcntl64}) {
    if (!exists(call)) continue;
    when(call);
    load(1);
    ifEqual(F_SETOWN, refuse(EPERM));
    ifEqual(F_SETOWN_EX, refuse(EPERM));
    end(kAllow);
  }
  when(SYS_ioctl);
  load(1);
  ifEqual(FIOSETOWN, refuse(EPERM));
  ifEqual(SIOCSPGRP, refuse(EPERM));
  end(kAllow);
  add(BPF_RET | BPF_K, kAllow);
}

int CallFilter::install() const {
  const sock_fprog program = {static_cast<unsigned short>(size_), const_cast<sock_filter *>(code_)};
  return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0 ? 0 : errno;
}

}  // namespace tarn::server
