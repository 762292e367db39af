# The C++ of a guide as sources: awk -v out=FOLDER -v name=GUIDE -f extract.awk GUIDE.md
#
# A block that has a main() is a program of its own. Any other is the body of a function; a comment
# before it, <!-- code: ... -->, holds what the function has beside it, out of the reader's sight.
# <!-- code qt: --> and <!-- code gtk: --> put a block where that toolkit's headers are. Blocks of C that
# begin with a function stand by themselves, all others in one function, in their order.
function flush_block(  file, kit_name) {
  if (block ~ /(^|\n)int main\(/) {
    file = out "/" name "_program" ++programs ".cpp"
    printf "#line %d \"%s\"\n%s", first, FILENAME, block > file
    close(file)
  } else {
    kit_name = kit == "" ? "plain" : kit
    bodies[kit_name] = bodies[kit_name] sprintf("[[maybe_unused]] static void block%d() {\n%s\n#line %d \"%s\"\n%s}\n",
                                                NR, hidden, first, FILENAME, block)
  }
  hidden = kit = ""
}
/^ *<!-- code/ {
  line = $0
  sub(/^ *<!-- code */, "", line)
  kit = line
  sub(/:.*/, "", kit)
  sub(/^[^:]*:/, "", line)
  in_comment = 1
  $0 = line
}
in_comment {
  line = $0
  if (sub(/ *-->.*/, "", line)) in_comment = 0
  if (line != "") hidden = hidden line "\n"
  next
}
/^ *```cpp *$/ { in_block = 1; block = ""; first = NR + 1; match($0, /^ */); indent = RLENGTH; next }
/^ *```c *$/ { in_block = in_c = 1; block = ""; first = NR + 1; match($0, /^ */); indent = RLENGTH; next }
/^ *``` *$/ && in_c {
  in_block = in_c = 0
  block = sprintf("#line %d \"%s\"\n%s", first, FILENAME, block)
  if (block ~ /\nstatic /) functions = functions block
  else statements = statements block
  next
}
/^ *``` *$/ && in_block { in_block = 0; flush_block(); next }
in_block { block = block substr($0, indent + 1) "\n" }
END {
  if (functions statements != "") {
    file = out "/" name "_c.c"
    printf "#include <stdio.h>\n#include \"paperloom/c/paperloom.h\"\n%svoid statements(void);\nvoid statements(void) {\n%s}\n", functions, statements > file
    close(file)
  }
  for (kit_name in bodies) {
    file = out "/" name "_" kit_name ".cpp"
    printf "#include \"guide_%s.h\"\n%s", kit_name, bodies[kit_name] > file
    close(file)
  }
}
