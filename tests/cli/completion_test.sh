#!/bin/sh
# Types command lines into an interactive shell and compares what the program is started with. A tab, in the table ^,
# inserts all the completions that there are. Usage: completion_test.sh bash|bash-3.2|zsh, where bash-3.2 is a bash
# without what came later. Exit status 77: there is no such shell here.
set -eu

shell=$1
completion=$(cd "$(dirname "$0")/../../docs/completion" && pwd)
command -v "${shell%-*}" > /dev/null || exit 77
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"

mkdir -p bin/Script/sub "bin/Script/a folder" elsewhere/folder
touch bin/Script/Pro.pex bin/Script/Pro=1.pex bin/Script/Pro=2.pex "bin/Script/Two Words.pex" bin/Script/Notes.txt \
  bin/Script/sub/In.pex elsewhere/Out.pex elsewhere/Out.txt
cat > bin/tamsel <<- 'END'
	#!/bin/sh
	for arg; do  # Folders come with a slash or without.
	  printf '%s|' "${arg%/}"
	done >> "$HOME/results"
	echo >> "$HOME/results"
END
chmod +x bin/tamsel
ln -s ../bin/tamsel elsewhere/tamsel

cat > table <<- 'END'
	tamsel ^ => -Operation|-ScriptFile|-SetConfigVal|-TIF|-If|-Speed|-IP|-USB|-Module|
	tamsel -tif SW^ -SPEED ^ -T^ => -tif|SWD|-SPEED|adaptive|-TIF|
	tamsel -SetConfigVal Key=ab= -IF J^ => -SetConfigVal|Key=ab=|-IF|JTAG|
	tamsel -SetConfigVal Key=^ => -SetConfigVal|Key=|
	tamsel -IP host:80 -T^ => -IP|host:80|-TIF|
	tamsel -SetConfigVal "A= b > c" -SetConfigVal D=$(echo '=>') -T^ => -SetConfigVal|A= b > c|-SetConfigVal|D==>|-TIF|
	tamsel > out -T^ => -TIF|
	tamsel 2>out -SetConfigVal >>out A=2 >out -T^ => -SetConfigVal|A=2|-TIF|
	tamsel -USB 2 >out -T^ => -USB|2|-TIF|
	tamsel -ScriptFile Pro=1^ => -ScriptFile|Pro=1.pex|
	tamsel -ScriptFile ^ => -ScriptFile|Pro.pex|Pro=1.pex|Pro=2.pex|Two Words.pex|sub|a folder|
	tamsel -ScriptFile "Two W^ => -ScriptFile|Two Words.pex|
	tamsel -SCRIPTFILE ~/elsewhere/^ => -SCRIPTFILE|~/elsewhere/Out.pex|~/elsewhere/folder|
	~/elsewhere/tamsel -ScriptFile sub/^ => -ScriptFile|sub/In.pex|
END
sed "s/ => .*//; s/\^/$(printf '\t')/g" table > keys
sed "s/.* => //; s|~|$dir|g" table > expected

cat > .bashrc <<- 'END'
	[ "$SHELL" = bash ] || enable -n compopt mapfile
	. "$COMPLETION/tamsel.bash"
	bind '"\t": insert-completions'
END
cat > .zshrc <<- 'END'
	fpath=($COMPLETION $fpath)
	autoload -Uz compinit
	compinit -u -D
	zle -C insert-all complete-word _generic
	bindkey '^I' insert-all
	zstyle ':completion:insert-all:*' completer _all_matches _complete
	zstyle ':completion:insert-all:*' insert yes
	PS1='<ready>'
END
# Bash reads its command line from a pipe as well, zsh from a terminal alone.
cat > type-into-zsh <<- 'END'
	zmodload zsh/zpty
	zpty shell zsh -d -i
	zpty -r -m shell output '*<ready>*'
	while IFS= read -r line; do
	  zpty -w shell $line
	  zpty -r -m shell output '*<ready>*'
	done < keys
END
set -- env -i PATH="$dir/bin:$PATH" HOME="$dir" SHELL="$shell" COMPLETION="$completion" TERM=dumb LC_ALL=C
case $shell in
  zsh) "$@" zsh -f type-into-zsh > output 2>&1 ;;
  *) "$@" INPUTRC=/dev/null HISTFILE= bash --noprofile -i < keys > output 2>&1 ;;
esac || { cat output; exit 1; }

# Each shell has an order of its own.
for file in expected results; do
  while IFS= read -r line; do
    echo "$line" | tr '|' '\n' | LC_ALL=C sort | tr '\n' '|'
    echo
  done < $file > $file-sorted
done
diff expected-sorted results-sorted
