# Reach into the service, so only if that is built.
foreach(name IN ITEMS requests music)
  vantro_fuzzer(${name} ${name}.cpp)
  target_link_libraries(fuzz_${name} PRIVATE vantrod_objects)
endforeach()
