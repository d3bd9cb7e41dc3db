// How the sanitizers are to behave in a program that makes everything fail.

// What they find comes to the round's own handler, with its stack. At exit() they do nothing: a
// search for leaks would stop the process there, and watch it from another one.
extern "C" const char* __asan_default_options() {
  return "handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:handle_abort=0:"
         "abort_on_error=1:detect_leaks=0:allocator_may_return_null=1:use_sigaltstack=0:"
         // Each round is a fork: the less memory there is, the quicker.
         "quarantine_size_mb=4:malloc_context_size=5";
}
extern "C" const char* __ubsan_default_options() { return "abort_on_error=1:print_stacktrace=1"; }
