${# A summary of a class diagram in Markdown; anchored at the model. }
# Model ${Property(Name)}

${foreach ForEachInTree(Package)}
## Package ${Property(Name)}

${foreach ForEachOwned(Class)}
- class **${Property(Name)}**${foreach ForEach(Superclasses)}${IfFirstIter(" specializes ", ", ")}${Property(Name)}${end}
${foreach ForEachOwned(Attribute)}
  - ${Property(Name)}: ${Property(TypeName, "?")}
${end}
${foreach ForEachReferrer(Association, EndA)}
  - ${Property(Name)} -> ${ReferenceProperty(EndB, Name, "(none)")}
${end}
${end}
${end}
