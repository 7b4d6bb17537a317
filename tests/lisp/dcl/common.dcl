// Shared pieces, included by duct.dcl.
note_text : text { key = "note"; label = "Pick a size"; width = 20; }
