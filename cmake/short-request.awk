# Reads the linker's map and warns when many patterns of short-request*.ld match nothing: with other
# names in the libraries, the order of the code gains little.
/^[^ ]/ { inside = /^\.text\.short_request/; pattern = ""; next }
!inside { next }
/^ \*[^f]/ {
  ++count
  pattern = $0
  unmatched[pattern]
  next
}
pattern { delete unmatched[pattern]; pattern = "" }
END {
  for (pattern in unmatched) {
    ++missed
    list = list "\n " pattern
  }
  if (10 * missed > count) print "Warning: much of cmake/short-request*.ld matches nothing:" list >"/dev/stderr"
}
