# Prints instruction counts (NAME COUNT) as tables.
{ count[$1] = $2 }
function ratio(name, peer) { return sprintf("%.0f (%.3f)", count[peer], count[name] / count[peer]) }
END {
  split("flow flow-hop native-ip", kinds)
  print "Instructions per record; in parentheses the module's share of the peer's.\n"
  print "| kind | GPB | protozero | protobuf, reused | two copies |\n|---|---|---|---|---|"
  for (i = 1; i <= 3; ++i) {
    name = kinds[i] "/gpb/"
    printf "| %s | %.0f | %s | %s | %.0f |\n", kinds[i], count[name "module"], ratio(name "module", name "protozero"),
      ratio(name "module", name "protobuf"), count[name "copies"]
  }
  print "\n| kind | JSON | fmt, compiled | snprintf | two copies |\n|---|---|---|---|---|"
  for (i = 1; i <= 3; ++i) {
    name = kinds[i] "/json/"
    printf "| %s | %.0f | %s | %s | %.0f |\n", kinds[i], count[name "module"], ratio(name "module", name "fmt"),
      ratio(name "module", name "snprintf"), count[name "copies"]
  }
  split("gpb json both", encodings)
  print "\nThe whole way of a flow record beyond the encoders, by records a message x tasks an encoding; last, of a\nmessage. The 4096 records make two collection cycles at 300 a message and three otherwise.\n"
  print "| encoding | 1x1 | 20x1 | 100x1 | 300x1 | 1x8 | 20x8 | 100x8 | 300x8 | a message |\n|---|---|---|---|---|---|---|---|---|---|"
  split("1x1 20x1 100x1 300x1 1x8 20x8 100x8 300x8", shapes)
  for (i = 1; i <= 3; ++i) {
    printf "| %s |", encodings[i]
    for (j = 1; j <= 8; ++j) printf " %.0f |", beyond("flow", encodings[i], shapes[j])
    printf " %.0f |\n", (beyond("flow", encodings[i], "1x1") - beyond("flow", encodings[i], "100x1")) * 100 / 99
  }
  print "\n| encoding | flow-hop 100x1 | native-ip 100x1 |\n|---|---|---|"
  for (i = 1; i <= 3; ++i) {
    printf "| %s | %.0f | %.0f |\n", encodings[i], beyond("flow-hop", encodings[i], "100x1"),
      beyond("native-ip", encodings[i], "100x1")
  }
  print ""
}
function beyond(kind, encoding, shape, encoders) {
  encoders = 0
  if (encoding != "json") encoders += count[kind "/gpb/module"]
  if (encoding != "gpb") encoders += count[kind "/json/module"]
  return count["path/" kind "/" encoding "/" shape] - encoders
}
