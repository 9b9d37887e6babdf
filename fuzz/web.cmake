# Reaches into the bridge, so only if that is built.
vantro_fuzzer(web web.cpp)
target_link_libraries(fuzz_web PRIVATE vantro_web_objects)
