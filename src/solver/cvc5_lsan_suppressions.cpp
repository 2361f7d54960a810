// Leak-checker suppressions, compiled into every program of this build tree that links tvx
// when the tree is built with AddressSanitizer or LeakSanitizer and cvc5 is linked. cvc5's
// arithmetic depends on libcln, which allocates tables while it loads and never frees them:
// without this, every such program would be reported at exit, leaks of its own or not.
extern "C" char const* __lsan_default_suppressions();
extern "C" char const* __lsan_default_options();

extern "C" char const* __lsan_default_suppressions() {
  return "leak:libcln.so\n";
}

// The suppression is expected; LSAN_OPTIONS can still ask for the list of those used.
extern "C" char const* __lsan_default_options() {
  return "print_suppressions=0";
}
