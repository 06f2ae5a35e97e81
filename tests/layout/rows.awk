# Makes the rows of LayoutTest.cpp from the lines of layout.txt. Members are asked for by a derived
# class, because protected ones are part of it.
BEGIN { FS = "  +" }
/^#/ || NF < 2 { next }
{
  text = sprintf("Text(%s)", $1)
  if (match($1, /^&?[A-Za-z]+::/)) {
    class = substr($1, 1, RLENGTH - 2)
    address = sub(/^&/, "", class) ? "&" : ""
    text = sprintf("[] { struct Via : %s { static auto Get() { return %sVia::%s; } }; return Text(Via::Get()); }()",
                   class, address, substr($1, RLENGTH + 1))
  }
  narrow = NF > 2 ? $3 : $2
  printf "{R\"(%s)\", %s, R\"(%s)\", R\"(%s)\"},\n", $1, text, $2, narrow
}
