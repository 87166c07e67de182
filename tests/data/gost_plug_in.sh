# Sourced: gost_plug_in writes the head of a configuration with which openssl has GOST, from $GOST_ENGINE or where Debian
# keeps it.
gost_plug_in() {
  cat <<CONFIG
openssl_conf = init
[init]
engines = engines
[engines]
gost = gost
[gost]
engine_id = gost
dynamic_path = ${GOST_ENGINE:-$(openssl version -e | sed 's/.*"\(.*\)".*/\1/')/gost.so}
default_algorithms = ALL
CONFIG
}
