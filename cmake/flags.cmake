# Compiler and linker flags that every target of ours takes through `qov_flags`.
add_library(qov_flags INTERFACE)
target_compile_options(qov_flags INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wformat=2)
target_compile_definitions(qov_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
# Not with a sanitizer: g++ 12 then warns of overruns in its own std::string.
if(QOV_WERROR AND NOT QOV_SANITIZE)
  target_compile_options(qov_flags INTERFACE -Werror)
endif()

if(QOV_SANITIZE)
  # No vptr check: the product's objects carry no type information, which it would ask for.
  target_compile_options(qov_flags INTERFACE -fsanitize=${QOV_SANITIZE} -fno-sanitize=vptr
                                             -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(qov_flags INTERFACE -fsanitize=${QOV_SANITIZE})
elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  target_compile_definitions(qov_flags INTERFACE _FORTIFY_SOURCE=2)
endif()

target_compile_options(qov_flags INTERFACE -fstack-protector-strong)
target_link_options(qov_flags INTERFACE -pie -Wl,-z,relro,-z,now -Wl,--as-needed)
