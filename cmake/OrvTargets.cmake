# The compiler's and linker's options for the targets of this project. Users of the libraries do not get them.

# Every target links this one or the next.
add_library(orv_warnings INTERFACE)
target_compile_options(orv_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2)
target_compile_features(orv_warnings INTERFACE cxx_std_17)

if(ORV_SANITIZE)
  target_compile_options(orv_warnings INTERFACE
    -fsanitize=${ORV_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(orv_warnings INTERFACE -fsanitize=${ORV_SANITIZE})
endif()

if(ORV_FUZZ)
  target_compile_options(orv_warnings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# What runs as root links this one instead, which includes orv_warnings.
add_library(orv_hardening INTERFACE)
target_link_libraries(orv_hardening INTERFACE orv_warnings)
target_compile_options(orv_hardening INTERFACE -fstack-protector-strong)
if(NOT ORV_SANITIZE)
  # the checks need optimised code
  target_compile_options(orv_hardening INTERFACE $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
endif()
if(NOT APPLE)
  target_link_options(orv_hardening INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()

# For a program that runs for a few milliseconds. Loading the C++ runtime would take a large part of them.
function(orv_link_runtime_statically program)
  if(NOT APPLE AND NOT ORV_SANITIZE)
    target_link_options(${program} PRIVATE -static-libstdc++ -static-libgcc)
  endif()
endfunction()

include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
