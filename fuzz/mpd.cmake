# Reaches into the bridge, so only if that is built.
vantro_fuzzer(mpd mpd.cpp)
target_link_libraries(fuzz_mpd PRIVATE vantro_mpd_objects)
