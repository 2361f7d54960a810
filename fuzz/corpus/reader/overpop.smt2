(push 1)(pop 1)(pop 1)
