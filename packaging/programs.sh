# shellcheck shell=bash disable=SC2034
# What goes into which package: a program a line, with the folder of the build that it comes from, where it is installed,
# and the line that tells what it is. One that a build does not have is left out.
# The cabinet stands in a folder of its own, where it looks for userinfo/ and for what it starts.
production_programs="
brickfall          cabinet  usr/lib/brickfall  arcade cabinet whose runs are paid for and recorded on the Bitcoin SV chain
brickfall-audit    cabinet  usr/bin            judges recorded scores of Brickfall
brickfall-view     cabinet  usr/bin            shows recorded runs of Brickfall
"
sandbox_programs="
brickfall                   cabinet  usr/lib/brickfall-sandbox  -
brickfall-audit             cabinet  usr/lib/brickfall-sandbox  -
brickfall-view              cabinet  usr/lib/brickfall-sandbox  -
brickfall-sandbox           sandbox  usr/lib/brickfall-sandbox  -
brickfall-companion         sandbox  usr/lib/brickfall-sandbox  -
brickfall-companion-window  sandbox  usr/lib/brickfall-sandbox  -
headless                    tools    usr/lib/brickfall-sandbox  -
"
# Linked by none, compiled into all, or needed to run: what a list of ingredients names besides the shared libraries.
compiled_in="nlohmann-json3-dev"
