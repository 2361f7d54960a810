// A counter whose property quantifies over a constant chosen for all time (allconst), for the
// yosys-smtbmc client test; BAD makes the property fail when the counter reaches 6, and
// NOFORALL fixes the constant instead (for encodings that take no quantifiers).
module top (
    input clk,
    output reg [3:0] cnt
);
`ifdef NOFORALL
  wire [3:0] k = 4'd6;
`else
  (* allconst *) wire [3:0] k;
`endif
  initial cnt = 0;
  always @(posedge clk) if (cnt < 9) cnt <= cnt + 1; else cnt <= 0;
`ifdef BAD
  always @(*) if (k == cnt) assert (k < 6);
`else
  always @(*) if (k == cnt) assert (k < 10);
`endif
endmodule
