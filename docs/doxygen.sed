# SPDX-License-Identifier: Apache-2.0
# What doxygen is given of a page: examples in their place, other pages without a place in them, for which it makes anchors of its
# own, and no links to files that are no pages.
s|^<!-- include \(.*\) -->$|\\include \1|
s|(In the source tree: .*)||
s|](\([^)#]*\.md\)#[^)]*)|](\1)|g
s,\[\([^]]*\)\](\(meta-[^)]*\|\.\./examples/[^)]*\|examples/[^)]*\|schemas/[^)]*\|LICENSE\)),\1,g
