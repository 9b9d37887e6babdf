# Reaches into the service, so only where that is built.
vantro_fuzzer(requests requests.cpp)
target_link_libraries(fuzz_requests PRIVATE vantrod_objects)
