# Compares instruction counts (second file: NAME COUNT) with their ceilings (first file, the same form). Fails when a
# count is more than 2 % above, when a ceiling has no count, or a count no ceiling.
FILENAME != "-" {
  if ($1 !~ /^#/) ceiling[$1] = $2
  next
}
!($1 in ceiling) {
  print $1 ": no ceiling; it takes " $2
  failed = 1
  next
}
{
  checked[$1] = 1
  if ($2 > 1.02 * ceiling[$1]) {
    printf "%s: %.1f instructions a record, the ceiling is %.1f\n", $1, $2, ceiling[$1]
    failed = 1
  }
  if ($2 < 0.98 * ceiling[$1]) printf "%s: %.1f instructions a record: lower the ceiling of %.1f\n", $1, $2, ceiling[$1]
}
END {
  for (name in ceiling) {
    if (!(name in checked)) {
      print name ": not measured"
      failed = 1
    }
  }
  if (!failed) print length(checked) " instruction counts, none above its ceiling"
  exit failed
}
