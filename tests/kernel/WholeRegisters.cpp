// Preloaded into the user-mode kernel. That keeps the floating-point registers of a process in an area as large as
// those of the processors of its day. On a processor with more registers (AMX, say) the host takes none but a whole
// set, and the kernel panics before its first process: "ptrace set fp regs failed, errno = 14". Here what it sets is
// completed with what the process has in the registers that it doesn't know.
//
// Nothing is changed where the area is large enough.
#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace {

using Ptrace = long (*)(__ptrace_request, pid_t, void*, void*);

// Larger than any set so far (11 KB with AMX).
char theRegisters[64 * 1024];

bool isShortSet(Ptrace ptraceOfLibc, pid_t pid, void* kind, iovec const& set, iovec& whole) {
   whole = {theRegisters, sizeof theRegisters};
   return ptraceOfLibc(PTRACE_GETREGSET, pid, kind, &whole) == 0 && whole.iov_len > set.iov_len;
}

} // namespace

extern "C" __attribute__((visibility("default"))) long ptrace(__ptrace_request request, ...) noexcept {
   static auto const ptraceOfLibc = reinterpret_cast<Ptrace>(dlsym(RTLD_NEXT, "ptrace"));
   va_list arguments;
// The C library declares it so, with an enumeration that is passed as a number.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"
   va_start(arguments, request);
#pragma GCC diagnostic pop
   auto const pid = va_arg(arguments, pid_t);
   auto* const address = va_arg(arguments, void*);
   auto* const data = va_arg(arguments, void*);
   va_end(arguments);
   iovec whole;
   if (request == PTRACE_SETREGSET && reinterpret_cast<long>(address) == NT_X86_XSTATE &&
       isShortSet(ptraceOfLibc, pid, address, *static_cast<iovec const*>(data), whole)) {
      auto const& set = *static_cast<iovec const*>(data);
      std::memcpy(theRegisters, set.iov_base, set.iov_len);
      return ptraceOfLibc(request, pid, address, &whole);
   }
   return ptraceOfLibc(request, pid, address, data);
}
