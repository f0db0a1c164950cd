Model ${Property(Name)}: ${foreach ForEachInTree(Class)}${Property(Name)}${IfFirstIter("", ", ")}${end}
${Lookup(Name, "a", "b")} ${Boolean(flag)}${If(flag, "yes", "no")} ${CppName(Name)}
