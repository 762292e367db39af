#!/usr/bin/awk -f
# Shows Doxygen a header's plain comments: a block of // lines, or in C a /* */, that stands on its own
# belongs to what follows it, one at a line's end to what stands before it. Comments within functions
# stay as they are.
{
  if ($0 ~ /^[ \t]*\/\/ ?clang-format/) { print; next }
  if ($0 ~ /^[ \t]*\/\*( [^-]|$)/) {
    sub(/\/\*/, "/**")
    print
    next
  }
  if (match($0, /^[ \t]*\/\//)) {
    print substr($0, 1, RLENGTH) "/" substr($0, RLENGTH + 1)
    trailing = 0
    next
  }
  if (match($0, /[;,{(] *\/\/ /) && $0 !~ /\/\/ guards what/ && $0 !~ /http:\/\//) {
    at = index($0, "//")
    print substr($0, 1, at + 1) "/<" substr($0, at + 2)
    next
  }
  print
}
