// A stand-in sibling library for the plugins-folder tests: one export with a known answer.
extern "C" __attribute__((visibility("default"))) int Get_KG_RIGID_Exploded(int x) {
  return x * 2 + 1;
}
