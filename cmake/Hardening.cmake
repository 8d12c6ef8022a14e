# Warnings, hardening and sanitizers, the same for every target.
include(CheckPIESupported)
check_pie_supported()

add_compile_options(-Wall -Wextra -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> -Werror=return-type)
if(TARQ_SANITIZE)
  add_compile_options(-fsanitize=${TARQ_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g)
  add_link_options(-fsanitize=${TARQ_SANITIZE})
else()
  add_compile_options(-fstack-protector-strong -fstack-clash-protection $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()
