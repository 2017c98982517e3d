# Writes each C++ block of a Markdown document to dir/NAME.cpp, NAME being that of the comment in its first line ("first"
# without one), and a text block that follows directly to dir/NAME.txt.
/^```/ {
  if (inside) {
    inside = 0
    close(file)
    ended = NR
  } else if ($0 == "```cpp") {
    inside = 1
    file = ""
  } else if ($0 == "```text" && NR == ended + 1) {
    inside = 1
    sub(/cpp$/, "txt", file)
    printf "" > file
  } else {
    inside = 1
    file = "/dev/null"
  }
  next
}
inside {
  if (file == "") {
    name = $0 ~ /^\/\/ [a-z_]+\.cpp$/ ? substr($0, 4) : "first.cpp"
    file = dir "/" name
  }
  print > file
}
