// The tool as a person at a shell uses it: each case is a script in a folder of its own that holds the
// photos a.png and b.png, and ends at the first command that doesn't do what it should.
#include "tests/tools/scratchFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ostream>

namespace kt7 {
namespace {

// d: denoise quickly, with levels by hand, as the pictures are too small to be measured. fails: the
// command ends with a code, and says some words in its first line on standard error.
constexpr const char* prelude = R"sh(
set -eu
d='kt7 denoise --fast --noise 0.03,0.03,0.03,0.02,0.03,0'
fails() {
    local code=$1 words=$2 got=0
    shift 2
    "$@" 2>err || got=$?
    if [ $got != $code ] || ! head -n 1 err | grep -qF -e "kt7: " || ! grep -qF -e "$words" err; then
        echo "$*: ended with $got, said $(cat err)"
        exit 1
    fi
}
not() { if "$@"; then echo "unexpected: $*"; exit 1; fi; }
isPng() { for f; do [ "$(head -c 4 $f | tail -c 3)" = PNG ] || { echo $f is no PNG; exit 1; }; done; }
)sh";

struct Case {
    const char* name;
    const char* script;
};
void PrintTo(const Case& test, std::ostream* out) {
    *out << test.name;
}

constexpr Case cases[] = {
    {"NothingIsOverwrittenUnasked", R"sh(
cp a.png a; cp b.png b
fails 1 'b.png: is there already' $d a.png b.png
fails 1 'b.png: is there already' $d *.png
fails 1 'a.png: is there already' $d a.png a.png
fails 1 'a.png: is there already' $d --out-dir . a.png
fails 1 'a.png: is there already' kt7 preview b.png a.png
fails 1 'a.png: is there already' kt7 estimate b.png --plot a.png
fails 1 'a.png: is there already' kt7 compare b.png a.png
fails 1 'a.png: is there already' kt7 levels b.png a.png --view luma
mkdir demo; cp a.png demo/clean.png
fails 1 'clean.png: is there already' kt7 demo demo --size 64x48
chmod 444 a.png
fails 1 'a.png: is there already' $d b.png a.png
cmp a a.png; cmp b b.png; cmp a demo/clean.png
$d -f --out-dir . a.png b.png
not cmp -s a a.png; not cmp -s b b.png
kt7 demo demo --size 64x48 --force --fast; kt7 demo demo --size 64x48 -f --fast
)sh"},
    {"ManyPhotosFindTheirPlace", R"sh(
$d --out-dir new/deep *.png
isPng new/deep/a.png new/deep/b.png
$d --suffix _clean --format jpg a.png; test -s a_clean.jpg
$d --suffix _x --out-dir new a.png; isPng new/a_x.png
cp b.png a_y.png
fails 1 'a_y.png: is an input' $d -f --suffix _y a.png a_y.png
mkdir sub; cp a.png sub
fails 1 'would be made of' $d --out-dir o a.png sub/a.png; not test -e o
fails 1 'cannot make the directory' $d --out-dir a.png b.png
)sh"},
    {"ABatchGoesOnWhereItEnded", R"sh(
$d --suffix _x a.png; cp a_x.png before
$d --skip-existing --suffix _x --json a.png b.png nothing.png >json 2>err && exit 1
cmp a_x.png before; isPng b_x.png
[ "$(wc -l <json)" = 3 ]
sed -n 1p json | grep -q '"skipped": *true'
sed -n 2p json | grep -q '"input": *"b.png"'
sed -n 3p json | grep -q '"error": *"nothing.png: '
[ "$(wc -l <err)" = 2 ]
)sh"},
    {"ADryRunOnlySays", R"sh(
[ "$($d --dry-run --out-dir new a.png)" = 'a.png -> new/a.png' ]; not test -e new
[ "$($d --dry-run -f a.png b.png)" = 'a.png -> b.png (replaced)' ]
cp b.png before
fails 1 'is there already' $d --dry-run a.png b.png
fails 1 'nothing.png: cannot read' $d --dry-run nothing.png c.png
cmp b.png before; not test -e c.png
)sh"},
    {"AReplacedFileStaysWhatItWas", R"sh(
cp b.png before; chmod 6640 b.png; ln b.png hard; ln -s b.png link; ln -s link link2
$d -f a.png link2
test -L link; test -L link2; cmp hard before; not cmp -s b.png before
[ "$(stat -c %a b.png)" = 640 ]
chmod 444 b.png; $d -f a.png b.png; [ "$(stat -c %a b.png)" = 444 ]
ln -s new.png dangling; $d a.png dangling; isPng new.png; test -L dangling
(umask 077; $d a.png mine.png); [ "$(stat -c %a mine.png)" = 600 ]
if [ "$(id -u)" = 0 ]; then chown 12:34 b.png; $d -f a.png b.png; [ "$(stat -c %u:%g b.png)" = 12:34 ]; fi
ln -s loop1 loop2; ln -s loop2 loop1
fails 1 'Too many levels' $d -f a.png loop1
fails 1 'is a directory' $d -f a.png .
fails 1 'there is no directory' $d a.png none/o.png
[ -z "$(ls -A | grep kt7-)" ]
)sh"},
    {"StreamsAreWrittenAsTheyAre", R"sh(
p='--format png -q'
$d a.png /dev/stdout $p >o1; $d a.png /dev/fd/7 $p 7>o2; $d a.png - $p | cat >o3
mkfifo pipe; cat pipe >o4 & $d a.png pipe $p; wait; test -p pipe
exec 8> >(cat >o5; touch ready); $d a.png /dev/fd/8 $p; exec 8>&-
until test -e ready; do :; done
isPng o1 o2 o3 o4 o5
echo begun >o6; $d a.png /dev/stdout $p >>o6; head -n 1 o6 | grep -qx begun; [ $(stat -c %s o6) -gt 1000 ]
kt7 denoise <(cat a.png) --fast --noise 0,0,0,0,0,0 o7.png; cat a.png | $d /dev/stdin o8.png
isPng o7.png o8.png
fails 1 'cannot write' $d a.png /dev/full $p
fails 1 'cannot write' $d a.png - $p >/dev/full
)sh"},
    {"ClosedStreamsAreNoFiles", R"sh(
fails 1 'cannot write' $d a.png - --format png >&-
fails 1 '' $d - o.png <&-; not test -e o.png
$d a.png o.png <&- >&- 2>&-; isPng o.png
)sh"},
    {"NamesCantFoolTheTerminal", R"sh(
odd=$'e\e[31m\n\xff\xe2\x80\xae.png'; cp a.png "$odd"
fails 1 'e\x1b[31m\n\xff\xe2\x80\xae.png: is there already' $d a.png "$odd"
[ "$(wc -l <err)" = 1 ]
$d --json --suffix _o "$odd" >json; [ "$(wc -l <json)" = 1 ]; not grep -q $'\e' json; test -s $'e\e[31m\n\xff\xe2\x80\xae_o.png'
$d --dry-run --suffix _p "$odd" | grep -q '\\x1b\[31m\\n'
)sh"},
    {"WrongUseIsToldWithTheRightOne", R"sh(
u='usage: kt7'
fails 2 "$u COMMAND" kt7; fails 2 'did you mean denoise?' kt7 denoize; fails 2 'there are' kt7 xyzzy
fails 2 "$u COMMAND" kt7 help paint; fails 2 "$u COMMAND" kt7 --nothing
for args in 'a.png' 'a.png b.png c.png' '- --out-dir new' 'a.png c.png -s 1e9' 'a.png c.png -s nan' \
    'a.png c.png --sharpen -1' 'a.png c.png --quality 0' 'a.png c.png --quality good' 'a.png c.png --quality 1 --quality 2' \
    'a.png c.png --fast --quality best' 'a.png c.png --blend 1.1' 'a.png c.png --no-guard' 'a.png c.png --nothing' \
    'a.png c.png -f --skip-existing' 'a.png --suffix /x' 'a.png c.png -j 0' 'a.png c.png --noise 1,2' 'a.png c.png --noise 1,1,1,1,1,0;' 'a.png c.png --format x'; do
    fails 2 "$u denoise [OPTIONS] IN... [OUT]" kt7 denoise $args
done
for args in '--crop 15x20+0+0' '--crop 20x20+-1+0' '--crop 20x20' '--strengths 1,' '--strengths 1x' '--strengths 1,2,3,4,5,6,7,8,9'; do
    fails 2 "$u compare" kt7 compare a.png c.png $args
done
fails 2 "$u preview" kt7 preview a.png c.png --width 0; fails 2 "$u levels" kt7 levels a.png c.png --view x
fails 2 "$u demo" kt7 demo new --size 0x7
[ "$(kt7 help denoise)" = "$(kt7 denoise --help)" ]; kt7 help | grep -q estimate
not test -e new; not test -e c.png
)sh"},
    {"NoiseIsDrawn", R"sh(
odd='a&<b.png'; cp a.png "$odd"; kt7 estimate "$odd" --plot plot.svg >rows; [ "$(wc -l <rows)" = 2 ]
grep -q 'Noise of a&amp;&lt;b.png</text>' plot.svg; [ "$(tail -n 1 plot.svg)" = '</svg>' ]
for tag in svg style text; do
    [ "$(grep -o "<$tag[ >]" plot.svg | wc -l)" = "$(grep -o "</$tag>" plot.svg | wc -l)" ]
done
# Three curves of six points and three of fourteen, all within the axes.
grep -o 'points="[^"]*' plot.svg | cut -d '"' -f 2 >points; [ "$(wc -l <points)" = 6 ]
[ "$(wc -w <points)" = 60 ]
tr -s ' ' '\n' <points | grep . | awk -F , '$1 < 60 || $1 > 900 || $2 < 90 || $2 > 350 { exit 1 }'
fails 2 'one photo' kt7 estimate a.png b.png --plot c.svg; not test -e c.svg
fails 1 'nothing.png' kt7 estimate nothing.png --plot c.svg; not test -e c.svg
)sh"},
    {"SeveralPhotosAtOnce", R"sh(
printf 'no picture' >text.png; cp a.png -- -dash.png
got=0; $d -j 2 --json -s 2 --out-dir out -- *.png nothing.png >json 2>err || got=$?
[ $got = 1 ]; [ "$(wc -l <json)" = 5 ]; [ "$(grep -c '"error"' json)" = 2 ]; [ "$(wc -l <err)" = 2 ]
[ "$(grep -c '"lumaMid": *0.06' json)" = 3 ]
isPng out/a.png out/b.png ./out/-dash.png; [ "$(ls -A out | wc -l)" = 3 ]
fails 1 'is there already' $d -j 2 --out-dir out a.png b.png
$d -j 2 --threads 1 --out-dir out -f a.png b.png
)sh"},
};

class Script : public testing::TestWithParam<Case> {};

TEST_P(Script, DoesWhatAPersonExpects) {
    const ScratchFolder folder;
    writeBytes(folder / "script", std::string(prelude) + GetParam().script);
    const std::filesystem::path program = KT7_PROGRAM;
    const std::string start = "cd '" + folder / "" + "' && export PATH='" +
                              program.parent_path().string() +
                              "':$PATH && mkdir -p photos work && "
                              "kt7 demo photos --size 64x48 --fast >/dev/null && "
                              "cp photos/noisy.png work/a.png && cp photos/clean.png work/b.png && "
                              "cd work && timeout 100 bash ../script >../said 2>&1";
    EXPECT_EQ(std::system(start.c_str()), 0) << bytesOf(folder / "said");
}

INSTANTIATE_TEST_SUITE_P(Cases, Script, testing::ValuesIn(cases),
                         [](const auto& test) { return std::string(test.param.name); });

} // namespace
} // namespace kt7
