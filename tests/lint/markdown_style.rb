# What mdl checks in the documents: all of its rules, with these exceptions.
all
# The width of code and comments. Tables and listings cannot be wrapped.
rule 'MD013', :line_length => 120, :tables => false, :ignore_code_blocks => true
# A question is a heading, too.
rule 'MD026', :punctuation => '.,;:!'
rule 'MD029', :style => :ordered
# Most code blocks are listings in no language.
exclude_rule 'MD040'
rule 'MD046', :style => :fenced
# Each release of the changelog has the same headings.
rule 'MD024', :allow_different_nesting => true
