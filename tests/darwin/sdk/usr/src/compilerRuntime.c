// What the project takes of the runtime library that a Mac's compiler links by itself: which instructions
// the processor has. This stand-in knows of none beyond the common ones.

struct {
  unsigned vendor, type, subtype, features;
} __cpu_model __attribute__((visibility("hidden")));

__attribute__((visibility("hidden"))) int __cpu_indicator_init(void) {
  return 0;
}
