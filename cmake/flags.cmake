# Compiler and linker flags that every target of ours takes through `qov_flags`.
add_library(qov_flags INTERFACE)
target_compile_options(qov_flags INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wformat=2)
target_compile_definitions(qov_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
if(QOV_WERROR)
  target_compile_options(qov_flags INTERFACE -Werror)
endif()

if(QOV_SANITIZE)
  # No vptr check: the product's objects carry no type information, which it would ask for.
  target_compile_options(qov_flags INTERFACE -fsanitize=${QOV_SANITIZE} -fno-sanitize=vptr
                                             -fno-sanitize-recover=all -fno-omit-frame-pointer)
  # With a sanitizer g++ 12 takes its own std::string's appending for an overrun; plain builds keep the check.
  target_compile_options(qov_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds>)
  target_link_options(qov_flags INTERFACE -fsanitize=${QOV_SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_definitions(qov_flags INTERFACE _FORTIFY_SOURCE=2)
endif()

target_compile_options(qov_flags INTERFACE -fstack-protector-strong)
target_link_options(qov_flags INTERFACE -pie -Wl,-z,relro,-z,now -Wl,--as-needed)
