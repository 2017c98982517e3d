# Makes of the table names.txt (see there) C++ that holds each declaration against the headers: `Table<N>::pins` takes
# the address of each thing as exactly what the table says, and calls what has default arguments without them.

function trim(text) {
  gsub(/^[ \t]+|[ \t]+$/, "", text)
  return text
}
# Splits at commas outside of brackets.
function split_list(text, parts,    i, c, depth, n, part) {
  n = 0
  for (i = 1; i <= length(text); ++i) {
    c = substr(text, i, 1)
    depth += (c ~ /[<(]/) - (c ~ /[>)]/)
    if (c == "," && depth == 0) {
      parts[++n] = trim(part)
      part = ""
    } else {
      part = part c
    }
  }
  if (trim(part) != "") parts[++n] = trim(part)
  return n
}

# [CLASS & CLASS...] NAMES: VALUES, VALUES...; ...  or  [namespace NAME] ...
/^\[/ {
  end_section()
  match($0, /^\[[^]]*\]/)
  classes = substr($0, 2, RLENGTH - 2)
  parameters = trim(substr($0, RLENGTH + 1))
  if (parameters != "") kept = parameters
  if (parameters == "none") kept = ""
  statics = sub(/^static /, "", classes) || classes ~ /^namespace /
  body = usings = item = ""
  next
}
/^#/ || NF == 0 { next }
/^[a-z]+ = / {
  sets[$1] = substr($0, length($1) + 4)
  next
}
{
  if (item == "") first = NR
  item = item " " $0
  while ((at = index(item, ";")) > 0) {
    declaration(trim(substr(item, 1, at - 1)))
    item = trim(substr(item, at + 1))
    first = NR
  }
}
END {
  end_section()
  print "void pinAll() {" calls "}"
}

function line(text) { body = body "#line " first " \"names.txt\"\n" text "\n" }

function declaration(text,    member, qualifier, i, c, depth, head, type, name, place, n, list, least, types, value) {
  if (text ~ /^using /) {
    usings = usings text ";\n"
    return
  }
  if (sub(/^base /, "", text)) {
    line("static_assert(std::is_convertible_v<C*, " text "*>);")
    return
  }
  if (sub(/^any /, "", text)) {
    n = split(text, list, " ")
    for (i = 1; i <= n; ++i) line("named(&C::" list[i] ");")
    return
  }
  member = !sub(/^static /, "", text) && !statics
  qualifier = sub(/ const$/, "", text) ? " const" : ""
  if (text !~ /\)$/) {
    value = ""
    if (match(text, / = /)) {
      value = substr(text, RSTART + 3)
      text = substr(text, 1, RSTART - 1)
    }
    match(text, /[^ ]+$/)
    name = substr(text, RSTART)
    line("pin<" substr(text, 1, RSTART - 2) ">(&C::" name ");")
    if (value != "") line("EXPECT(C()." name " == " value ");")
    return
  }
  for (i = length(text); i > 0; --i) {
    c = substr(text, i, 1)
    depth += (c == ")") - (c == "(")
    if (depth == 0) break
  }
  head = substr(text, 1, i - 1)
  n = split_list(substr(text, i + 1, length(text) - i - 1), list)
  least = n
  for (i = 1; i <= n; ++i) {
    if (sub(/ =$/, "", list[i]) && least == n) least = i - 1
    types = types (i > 1 ? ", " : "") list[i]
  }
  if (head == "C") {
    line("constructs<C" (n > 0 ? ", " : "") types ">();")
    return
  }
  match(head, /[^ ]+$/)
  name = substr(head, RSTART)
  if (name ~ /[a-zA-Z]<.*>$/ && classes !~ /^namespace /) name = "template " name
  type = substr(head, 1, RSTART - 2)
  line("pin<" type "(" types ")" qualifier (member ? ", C" : "") ">(&C::" name ");")
  if (least < n) {
    place = member ? "std::declval<" (qualifier != "" ? "const " : "") "C&>()." : "C::"
    value = ""
    for (i = 1; i <= least; ++i) value = value (i > 1 ? ", " : "") "std::declval<" list[i] ">()"
    line("static_assert(std::is_same_v<decltype(" place name "(" value ")), " type ">);")
  }
}

# Emits the section for each of its classes, and a call for each combination of its parameters.
function end_section(    n, i, list, c, groups, names, template, g, k, space, aliases) {
  if (classes == "") return
  n = split(classes, list, / & /)
  for (i = 1; i <= n; ++i) {
    c = list[i]
    template = ""
    g = split(kept, groups, /; */)
    for (k = 1; k <= g; ++k) {
      names = groups[k]
      sub(/:.*/, "", names)
      gsub(/ /, ", class ", names)
      template = template (k > 1 ? ", " : "") "class " names
    }
    ++count
    space = c ~ /spm::OpenMP/ ? "spm::OpenMP&" : "const Device&"
    aliases = "using D = " space ";\nusing S = const std::string&;\nusing J = const json&;\n"
    if (template ~ /class T(,|$)/) aliases = aliases "using R = RealType<T>;\n"
    if (template ~ /class T, class I(,|$)/) {
      aliases = aliases "using View = COT_CSRRawMat<T, I>;\nusing BlockView = COT_SpMVCSRRawMat<T, I>;\n" \
        "using MergeView = COT_MergeCSRRawMat<T, I>;\nusing Index = MatrixT<I, I>;\nusing Dense = MatrixT<T, I>;\n"
    }
    if (template ~ /class T, class G, class L$/) {
      aliases = aliases "using M = ParCSRMatrixT<T, G, L>;\nusing V = ParMatrixT<T, G, L>;\n" \
        "using Strong = ParCSRMatrixT<int, G, L>;\nusing Marks = ParMatrixT<int, G, L>;\n" \
        "using Op = ParMatrixFreeT<T, G, L>;\nusing P = ParPreconditionerT<T, G, L>;\n" \
        "using Part = PartitionerT<G, L>;\nusing Dense = MatrixT<T, L>;\nusing Index = MatrixT<L, L>;\n" \
        "using Sparse = CSRMatrixT<T, L>;\nusing Async = typename Op::AsyncMatVecObject;\n"
    }
    if (template != "") print "template <" template ">"
    print "struct Table" count " {\n" aliases
    code = body
    if (sub(/^namespace /, "", c)) {
      gsub(/C::/, c "::", code)
    } else {
      print "using C = " (c ~ />::/ ? "typename " : "") c ";"
    }
    print usings "static void pins() {\n" code "#line 1 \"generated\"\n}\n};"
    if (g == 0) {
      calls = calls "Table" count "::pins();\n"
    } else {
      combine(groups, 1, g, "")
    }
  }
  classes = ""
}

function combine(groups, k, g, chosen,    values, list, n, i) {
  if (k > g) {
    calls = calls "Table" count "<" substr(chosen, 3) ">::pins();\n"
    return
  }
  values = groups[k]
  sub(/^[^:]*: */, "", values)
  if (values in sets) values = sets[values]
  n = split_list(values, list)
  for (i = 1; i <= n; ++i) {
    values = list[i]
    gsub(/ /, ", ", values)
    combine(groups, k + 1, g, chosen ", " values)
  }
}
