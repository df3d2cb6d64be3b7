# SPDX-License-Identifier: MIT
# Turns the table that `mediagrabber keys` prints into the KEYS section of a manual page.
s/\\/\\e/g
s/^| `\([^`]*\)` | \(.*\) | \(.*\) | \(.*\) | \(.*\) | \(.*\) |$/.TP\n.B \1\n\6\n.br\nValue: \2 [\3]. Default: \4. A change takes effect \5./
t print
d
:print
s/ \[\]\././
p
