#!/bin/sh
# Fails unless each file named is hardened: hardening.sh FILE ...
# The module calls no libc function that has a checked form, so it alone may lack one.
code=0
fail() {
  echo "$file: $1"
  code=1
}
for file in "$@"; do
  segments=$(readelf -lW "$file") dynamic=$(readelf -dW "$file") symbols=$(readelf -W --dyn-syms "$file")
  [ -n "$segments" ] || fail "cannot be read"
  echo "$segments" | grep -q 'GNU_RELRO' || fail "no read-only relocations (-z relro)"
  echo "$dynamic" | grep -q 'BIND_NOW' || fail "symbols are not bound at the start (-z now)"
  echo "$segments" | grep 'GNU_STACK' | grep -qw 'RW' || fail "the stack is executable (-z noexecstack)"
  echo "$segments" | grep 'LOAD' | grep -q 'RWE' && fail "a segment is both writable and executable"
  echo "$symbols" | grep -q '__stack_chk_fail' || fail "no stack protector (-fstack-protector-strong)"
  readelf -hW "$file" | grep -q 'DYN' || fail "not position-independent (-fPIE -pie)"
  case $file in
    *libsavro_tarq.so) ;;
    *) echo "$symbols" | grep -q '_chk@' || fail "no checked libc calls (_FORTIFY_SOURCE)" ;;
  esac
done
exit $code
