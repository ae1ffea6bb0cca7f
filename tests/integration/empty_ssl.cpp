// A libssl.so.3 that has none of the functions.
extern "C" int quorvane_empty_library() { return 0; }
